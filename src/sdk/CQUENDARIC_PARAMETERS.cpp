#include "sdk/CQUENDARIC_PARAMETERS.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_PARAMETERS)

CQUENDARIC_PARAMETERS::CQUENDARIC_PARAMETERS() {
    m_fCTCAzimuthR = 360.0f - m_fCTCAzimuthL;
    m_strHRTF.reserve(512);
    m_strHRTF_CTC.reserve(512);
    m_strHRTFRequest.reserve(512);
    m_strHRTFRequest_CTC.reserve(512);
}

CQUENDARIC_PARAMETERS::~CQUENDARIC_PARAMETERS() = default;

void CQUENDARIC_PARAMETERS::SetHRTFRequest(const std::string &strPath) {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    m_strHRTFRequest = strPath;
}

std::string CQUENDARIC_PARAMETERS::GetHRTFRequest() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest;
}

void CQUENDARIC_PARAMETERS::SetHRTFRequestCTC(const std::string &strPath) {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    m_strHRTFRequest_CTC = strPath;
}

std::string CQUENDARIC_PARAMETERS::GetHRTFRequestCTC() const {
    std::lock_guard<std::recursive_mutex> guard(m_csStrings);
    return m_strHRTFRequest_CTC;
}

void CQUENDARIC_PARAMETERS::_read() {}

void CQUENDARIC_PARAMETERS::_write() {}
