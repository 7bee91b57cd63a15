#include "field/CSFM_ISM.h"

#include <cmath>
#include <cstdio>

#include "platform/Report.h"
#include "world/CDSC_World.h"
#include "world/PolygonGeometry.h"

QK_IMPLEMENT_SERIAL(CSFM_ISM)

namespace {
constexpr const char *kCaption = "Quendarik";
// A point of reflection within this of the path's last point, on all three axes, is the
// same point; a hit this far outside a plane's box still counts.
constexpr float kCoincident = 0.1f;
constexpr float kBoxMargin = 0.1f;
// A hit further than this in front of its plane's equation isn't on it.
constexpr float kOnPlane = 0.01f;

C3Point pointOf(float x, float y, float z) {
    C3Point p;
    p.x = x;
    p.y = y;
    p.z = z;
    return p;
}
}  // namespace

void CSFM_ISM::CachePlanes() {
    m_planes.clear();
    if (m_pWorld == nullptr) {
        return;
    }
    m_planes.reserve(m_pWorld->m_Planes.size());
    for (const CVRPlane *pPlane : m_pWorld->m_Planes) {
        const CVRPlane &q = *pPlane;
        // The sum in the order the polygon's own mirror takes it, so images land where the
        // polygon would put them.
        const float fNorm2 = q.C * q.C + (q.B * q.B + q.A * q.A);
        m_planes.push_back({q.A, q.B, q.C, q.D, fNorm2, q.m_fMinX, q.m_fMinY, q.m_fMinZ, q.m_fMaxX,
                            q.m_fMaxY, q.m_fMaxZ});
    }
}

int CSFM_ISM::CheckForRecalculationType(C3Point sourcePos, C3Point sourceLookAt,
                                        C3Point listenerPos, C3Point listenerLookAt, int iOrder,
                                        float fTemperature, float fSampleRate, int) {
    int iMask = 0;
    auto differs = [](const C3Point &a, const C3Point &b) {
        return a.x != b.x || a.y != b.y || a.z != b.z;
    };
    if (differs(sourcePos, m_Source)) {
        iMask |= kSourceMoved;
    }
    if (differs(sourceLookAt, m_SourceLookAt)) {
        iMask |= kSourceTurned;
    }
    if (differs(listenerPos, m_Listener)) {
        iMask |= kListenerMoved;
    }
    if (differs(listenerLookAt, m_ListenerLookAt)) {
        iMask |= kListenerTurned;
    }
    if (iOrder != m_iOrder) {
        iMask |= kOrderChanged;
    }
    if (fTemperature != m_fTemperature) {
        iMask |= kTemperatureChanged;
    }
    if (fSampleRate != m_fSampleRate) {
        iMask |= kRateChanged;
    }
    m_Source = sourcePos;
    m_SourceLookAt = sourceLookAt;
    m_Listener = listenerPos;
    m_ListenerLookAt = listenerLookAt;
    m_iOrder = iOrder;
    m_fTemperature = fTemperature;
    m_fSampleRate = fSampleRate;
    if (m_pWorld == nullptr) {
        return iMask;
    }
    m_bSourceInside = 1;
    m_bListenerInside = 1;
    for (const CVRPlane *pPlane : m_pWorld->m_Planes) {
        float d = 0.0f;
        pPlane->Distance(sourcePos, d);
        if (d < 0.0f) {
            m_bSourceInside = 0;
        }
        pPlane->Distance(listenerPos, d);
        if (d < 0.0f) {
            m_bListenerInside = 0;
        }
    }
    return iMask == 0 ? kNothingChanged : iMask;
}

int CSFM_ISM::CalculateImages() {
    if (m_pWorld == nullptr) {
        return 102;
    }
    if (m_pImages != nullptr && m_pImages != &m_Images && m_iMode == 1) {
        return 0;  // the images are another model's
    }
    m_pImages = &m_Images;
    CachePlanes();
    const size_t planes = m_planes.size();
    const int iOrder = std::max(0, m_iOrder);

    // What the order asks for: 1 + P + P(P - 1) + ... images, up to the cap.
    size_t wanted = 1;
    size_t generation = 1;
    bool bCapped = false;
    for (int o = 1; o <= iOrder && !bCapped; ++o) {
        generation *= o == 1 ? planes : (planes > 0 ? planes - 1 : 0);
        wanted += generation;
        bCapped = wanted > kMaxImages || generation == 0;
    }
    m_Images.clear();
    m_Images.reserve(std::min(wanted, kMaxImages));
    CImageSource direct;
    direct.x = m_Source.x;
    direct.y = m_Source.y;
    direct.z = m_Source.z;
    m_Images.push_back(direct);

    size_t first = 0;
    size_t end = 1;
    bool bFull = false;
    for (int o = 1; o <= iOrder && !bFull; ++o) {
        for (size_t i = first; i < end && !bFull; ++i) {
            m_Images[i].m_bExpanded = 1;
            for (size_t q = 0; q < planes; ++q) {
                const CImageSource parent = m_Images[i];
                // An image is never mirrored twice in a row in the same plane.
                if (parent.iPlane == static_cast<int>(q)) {
                    continue;
                }
                if (m_Images.size() >= kMaxImages) {
                    bFull = true;
                    break;
                }
                const PlaneData &p = m_planes[q];
                const float v = p.A * parent.x + p.B * parent.y + p.C * parent.z + p.D;
                const float k = 2.0f * (v / p.fNorm2);
                CImageSource image;
                image.x = parent.x - k * p.A;
                image.y = parent.y - k * p.B;
                image.z = parent.z - k * p.C;
                image.iParent = static_cast<int>(i);
                image.iPlane = static_cast<int>(q);
                image.iOrder = parent.iOrder + 1;
                m_Images.push_back(image);
            }
        }
        if (m_Images.size() == end) {
            break;  // a world without planes: no generation adds anything
        }
        first = end;
        end = m_Images.size();
    }
    if (bFull && m_reportedCap != wanted) {
        m_reportedCap = wanted;
        char text[200];
        std::snprintf(text, sizeof text,
                      "The room model stops at %zu images: order %d on %zu planes would make "
                      "more. The images made are used.",
                      kMaxImages, iOrder, planes);
        qk::Report(text, kCaption, qk::Severity::Warning);
    }
    return 0;
}

const std::vector<CImageSource> &CSFM_ISM::Images() const {
    return m_pImages != nullptr ? *m_pImages : m_Images;
}

std::vector<int> CSFM_ISM::PathOf(int iImage) const {
    const std::vector<CImageSource> &images = Images();
    std::vector<int> path;
    for (int k = iImage; k >= 0 && static_cast<size_t>(k) < images.size();
         k = images[static_cast<size_t>(k)].iParent) {
        if (images[static_cast<size_t>(k)].iPlane >= 0) {
            path.insert(path.begin(), images[static_cast<size_t>(k)].iPlane);
        }
    }
    return path;
}

int CSFM_ISM::ValidateImages() {
    if (m_pImages == nullptr) {
        m_pImages = &m_Images;
    }
    if (m_pWorld == nullptr || m_planes.size() != m_pWorld->m_Planes.size() ||
        m_pImages != &m_Images) {
        CachePlanes();  // in shared mode this model never generated
    }
    m_ValidImages.clear();
    const std::vector<CImageSource> &images = *m_pImages;
    const float lx = m_Listener.x;
    const float ly = m_Listener.y;
    const float lz = m_Listener.z;
    for (size_t i = 0; i < images.size(); ++i) {
        const CImageSource &image = images[i];
        CValidImage valid;
        valid.iImage = static_cast<int>(i);
        valid.fHitX = lx;
        valid.fHitY = ly;
        valid.fHitZ = lz;
        if (image.iPlane < 0) {
            m_ValidImages.push_back(valid);
            continue;
        }
        // From the listener towards the image, then back through each plane of the path,
        // from the listener's end to the source's.
        C3Point start = pointOf(lx, ly, lz);
        C3Point end = pointOf(image.x, image.y, image.z);
        bool bValid = true;
        for (int k = static_cast<int>(i); bValid && k >= 0;) {
            const CImageSource &step = images[static_cast<size_t>(k)];
            if (step.iPlane < 0 || static_cast<size_t>(step.iPlane) >= m_planes.size()) {
                break;
            }
            const PlaneData &p = m_planes[static_cast<size_t>(step.iPlane)];
            C3Point hit;
            if (LinePlaneIntersection(p.A, p.B, p.C, p.D, start, end, &hit) == 0) {
                bValid = false;
                break;
            }
            const float s = p.A * hit.x + p.B * hit.y + p.C * hit.z + p.D;
            const bool bCoincident = std::fabs(start.x - hit.x) < kCoincident &&
                                     std::fabs(start.y - hit.y) < kCoincident &&
                                     std::fabs(start.z - hit.z) < kCoincident;
            const bool bOutside = hit.x + kBoxMargin <= p.fMinX || hit.x - kBoxMargin >= p.fMaxX ||
                                  hit.y + kBoxMargin <= p.fMinY || hit.y - kBoxMargin >= p.fMaxY ||
                                  hit.z + kBoxMargin <= p.fMinZ || hit.z - kBoxMargin >= p.fMaxZ;
            if (s > kOnPlane || bCoincident || bOutside) {
                bValid = false;
                break;
            }
            valid.fHitX = hit.x;
            valid.fHitY = hit.y;
            valid.fHitZ = hit.z;
            // The next line starts at the hit and aims at the image mirrored back through
            // this plane.
            const float v = p.A * end.x + p.B * end.y + p.C * end.z + p.D;
            const float m = 2.0f * (v / p.fNorm2);
            start = hit;
            end = pointOf(end.x - m * p.A, end.y - m * p.B, end.z - m * p.C);
            k = step.iParent;
        }
        if (bValid) {
            m_ValidImages.push_back(valid);
        }
    }
    return 0;
}

int CSFM_ISM::_checkIfInside(C3Point p, CVRPlane *&pPlane) const {
    pPlane = nullptr;
    if (m_pWorld == nullptr) {
        return 0;
    }
    for (CVRPlane *pCandidate : m_pWorld->m_Planes) {
        pPlane = pCandidate;
        float d = 0.0f;
        pCandidate->Distance(p, d);
        const float qx = p.x - d * pCandidate->A;
        const float qy = p.y - d * pCandidate->B;
        const float qz = p.z - d * pCandidate->C;
        const float v = qx * pCandidate->A + qy * pCandidate->B + qz * pCandidate->C;
        if (v > 0.0f) {
            return -1;
        }
    }
    return 0;
}
