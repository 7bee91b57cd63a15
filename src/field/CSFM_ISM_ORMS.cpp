#include "field/CSFM_ISM_ORMS.h"

#include <algorithm>
#include <cstring>

QK_IMPLEMENT_SERIAL(CSFM_ISM_ORMS)

int CSFM_ISM_ORMS::GetBinauralImpulseResponse(CHELPER_HRTF *pHRTF, float *&pfMono, int &iMonoLength,
                                              float *&pfLeft, float *&pfRight, int &iLength,
                                              C3Point sourcePos, C3Point sourceLookAt,
                                              C3Point listenerPos, C3Point listenerLookAt,
                                              std::string strHRTFFile, int iOrder,
                                              float fTemperature, int iSampleRate, float &fPeakLeft,
                                              float &fPeakRight, int iUnused, int iRecalculate,
                                              int iFilterTaps, int iSourceIndex) {
    std::lock_guard<std::mutex> guard(m_csModels);
    m_iOrder = iOrder;
    m_fTemperature = fTemperature;
    m_fSampleRate = static_cast<float>(iSampleRate);
    CSFM_ISM *pFirst = m_Models.empty() ? nullptr : m_Models.front().get();
    CSFM_ISM *pModel = nullptr;
    for (const auto &model : m_Models) {
        if (model->m_iSourceIndex == iSourceIndex) {
            pModel = model.get();
            break;
        }
    }
    if (pModel == nullptr) {
        m_Models.push_back(std::make_unique<CSFM_ISM>(m_pWorld));
        pModel = m_Models.back().get();
        pModel->m_iSourceIndex = iSourceIndex;
    }
    pModel->m_pWorld = m_pWorld;
    pModel->m_pCode4 = m_pCode4;
    pModel->m_bReport = m_iInfo;
    pModel->m_iMode = m_iORMS;
    int result = 0;
    if (pModel->m_iMode == 1) {
        if (pFirst != nullptr && pFirst != pModel) {
            pModel->m_pImages = &pFirst->m_Images;
        }
        // The points exchanged: the first model's images are the listener's.
        result = pModel->GetBinauralImpulseResponse(
            pHRTF, pfMono, iMonoLength, pfLeft, pfRight, iLength, listenerPos, listenerLookAt,
            sourcePos, sourceLookAt, strHRTFFile, iOrder, fTemperature, iSampleRate, fPeakLeft,
            fPeakRight, iUnused, iRecalculate, iFilterTaps, iSourceIndex);
    } else {
        result = pModel->GetBinauralImpulseResponse(
            pHRTF, pfMono, iMonoLength, pfLeft, pfRight, iLength, sourcePos, sourceLookAt,
            listenerPos, listenerLookAt, strHRTFFile, iOrder, fTemperature, iSampleRate, fPeakLeft,
            fPeakRight, iUnused, iRecalculate, iFilterTaps, iSourceIndex);
    }
    std::memcpy(m_afEarlyDelays, pModel->m_afEarlyDelays, sizeof m_afEarlyDelays);
    m_iImagesTotal = pModel->m_iImagesTotal;
    m_iImagesValid = pModel->m_iImagesValid;
    m_iLastLength = iMonoLength;
    return result;
}

float CSFM_ISM_ORMS::GetRT60() {
    std::lock_guard<std::mutex> guard(m_csModels);  // the materials are shared with the models
    return CSFM_ISM::GetRT60();
}

void CSFM_ISM_ORMS::RemoveModel(int iSourceIndex) {
    std::lock_guard<std::mutex> guard(m_csModels);
    auto it = std::find_if(m_Models.begin(), m_Models.end(), [iSourceIndex](const auto &model) {
        return model->m_iSourceIndex == iSourceIndex;
    });
    if (it == m_Models.end()) {
        return;
    }
    const std::vector<CImageSource> *pImages = &(*it)->m_Images;
    for (const auto &model : m_Models) {
        if (model->m_pImages == pImages) {
            model->m_pImages = nullptr;  // generates its own at its next call
            model->m_Source = C3Point();
        }
    }
    m_Models.erase(it);
}

const CSFM_ISM *CSFM_ISM_ORMS::Model(int iSourceIndex) const {
    for (const auto &model : m_Models) {
        if (model->m_iSourceIndex == iSourceIndex) {
            return model.get();
        }
    }
    return nullptr;
}
