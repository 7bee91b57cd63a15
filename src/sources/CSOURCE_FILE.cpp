#include "sources/CSOURCE_FILE.h"

#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CSOURCE_FILE)

void CSOURCE_FILE::Serialize(qk::CArchive &ar) {
    CSOURCE::Serialize(ar);
    qk::SerializeVersion(ar);
}

void CSOURCE_FILE::GetFileInfo(char *, char *, int *) {}

bool CSOURCE_FILE::TakeRequest() {
    // Compared in place, so that a block with no new request copies no text. An empty request
    // is no request: the file given at creation stays in use.
    std::lock_guard<std::mutex> guard(m_csFileRequest);
    if (m_strFileRequest.empty() || m_strFileRequest == m_strFile) {
        return false;
    }
    m_strFile = m_strFileRequest;
    return true;
}

void CSOURCE_FILE::Fail(const std::string &strWhat) {
    if (m_strReported != m_strFile) {
        m_strReported = m_strFile;
        qk::Report(m_strFile + ": " + strWhat, "Quendarik", qk::Severity::Error);
    }
}

void CSOURCE_FILE::SetFile(const std::string &strFile) {
    std::lock_guard<std::mutex> guard(m_csFileRequest);
    m_strFileRequest = strFile;
}

std::string CSOURCE_FILE::GetFileRequest() const {
    std::lock_guard<std::mutex> guard(m_csFileRequest);
    return m_strFileRequest;
}
