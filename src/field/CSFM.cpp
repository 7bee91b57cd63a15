#include "field/CSFM.h"

#include <cmath>
#include <cstdio>

#include "platform/Archive.h"
#include "world/CDSC_World.h"

QK_IMPLEMENT_SERIAL(CSFM)

float CSFM::AverageAbsorption(CVRPlane &plane) const {
    CMATERIAL &material = plane.m_Material;
    if (material.m_strName != plane.m_strMaterial || material.m_pFilter.get() == nullptr) {
        float fAverage = 0.0f;
        material.GetAverage(m_pCode4, plane.m_strMaterial, fAverage, 32);
        return fAverage;
    }
    // The material's bands are known: their mean below the Nyquist frequency of 44,100 Hz,
    // without designing its reflection filter anew for that rate.
    const int n = CMATERIAL::BandsForRate(44100.0f);
    float sum = 0.0f;
    for (int i = 0; i < n; ++i) {
        sum += material.m_fCoeff[i] / 100.0f;
    }
    return sum / static_cast<float>(n);
}

float CSFM::GetRT60() {
    // A world without planes is no room, whatever volume it last counted.
    if (m_pWorld == nullptr || m_pCode4 == nullptr || m_pWorld->m_Planes.empty()) {
        return 0.0f;
    }
    float fAbsorption = 0.0f;
    for (CVRPlane *pPlane : m_pWorld->m_Planes) {
        fAbsorption += pPlane->Area() * AverageAbsorption(*pPlane);
    }
    const float fVolume = m_pWorld->m_fVolume;
    if (!(fVolume > 0.0f)) {
        return 0.0f;
    }
    return 0.163f * fVolume / fAbsorption;
}

int CSFM::GetMonauralImpulseResponse(float *&, int &, C3Point, C3Point, C3Point, C3Point, int,
                                     float, int, float &, int, int, int) {
    return -1;
}

int CSFM::GetBinauralImpulseResponse(CHELPER_HRTF *, float *&, int &, float *&, float *&, int &,
                                     C3Point, C3Point, C3Point, C3Point, std::string, int, float,
                                     int, float &, float &, int, int, int, int) {
    return -1;
}

int CSFM::TruncatedDegrees(float fDegrees) {
    if (!std::isfinite(fDegrees)) {
        return 0;
    }
    return static_cast<int>(std::fmax(std::fmin(fDegrees, 1e6f), -1e6f));
}

float CSFM::GetDistance(C3Point a, C3Point b) {
    const C3Point d(b.x - a.x, b.y - a.y, b.z - a.z, 0);
    return d.Length();
}

int CSFM::_GetAzimuth(C3Point a, C3Point b) {
    const float dx = b.x - a.x;
    const float dy = b.y - a.y;
    const C3Point d(dx, dy, b.z - a.z, 0);
    // phi is the one-argument arctangent, -90..90; the quadrant comes from the signs.
    int v = TruncatedDegrees(d.phi);
    if (dx >= 0.0f && dy >= 0.0f) {
        v += 270;
        if (v == 360) {
            v = 0;
        }
    } else if (dx < 0.0f) {
        v += 90;
    } else {
        v += 270;  // dx >= 0 and dy < 0: no wrap is needed, phi is negative here
    }
    return v;
}

int CSFM::_GetElevation(C3Point a, C3Point b) {
    // From b to a, the reverse of the azimuth: a point above a gives a positive result.
    const C3Point d(a.x - b.x, a.y - b.y, a.z - b.z, 0);
    return TruncatedDegrees(d.theta) - 90;
}

float CSFM::GetAzimuth(C3Point from, C3Point lookAt, C3Point target, C3Point) {
    int a = _GetAzimuth(from, target) - _GetAzimuth(from, lookAt);
    if (a < 0) {
        a += 360;
    }
    return static_cast<float>(a);
}

float CSFM::GetElevation(C3Point from, C3Point lookAt, C3Point target, C3Point) {
    int e = _GetElevation(from, target) - _GetElevation(from, lookAt);
    // Folds a difference beyond the pole back by its remainder; 180 and -180 stay as they
    // are, which the data sets clamp to the poles.
    if (e > 90 || e < -90) {
        e = e - 2 * (e % 90);
    }
    return static_cast<float>(e);
}

int CSFM::SaveToFile(const std::string &strFileName, float *pfValues, int iCount) {
    std::FILE *pFile = std::fopen(strFileName.c_str(), "wb");
    if (pFile == nullptr) {
        return 1;
    }
    bool bWritten = true;
    for (int i = 0; i < iCount && pfValues != nullptr; ++i) {
        if (pfValues[i] == 0.0f) {
            pfValues[i] = 0.001f;
        }
        bWritten =
            bWritten && std::fprintf(pFile, "%.3f\r\n", static_cast<double>(pfValues[i])) > 0;
    }
    bWritten = std::fclose(pFile) == 0 && bWritten;
    return bWritten ? 0 : 1;
}

void CSFM::Serialize(qk::CArchive &ar) {
    qk::SerializeVersion(ar);
}
