// The world's generation: expressions to numbers, the flat lists and the figures of the box.
#include <algorithm>
#include <cmath>

#include "world/CDSC_World.h"

namespace {
constexpr int kNothingDone = 201;

struct Box {
    float xMin = 0, xMax = 0, yMin = 0, yMax = 0, zMin = 0, zMax = 0;
};

// Widens [lo, hi] to hold v.
void widenRange(float v, float &lo, float &hi) {
    if (v > hi)
        hi = v;
    if (v < lo)
        lo = v;
}

void widen(Box &box, const C3Point &p, bool first) {
    if (first) {
        box = {p.x, p.x, p.y, p.y, p.z, p.z};
        return;
    }
    widenRange(p.x, box.xMin, box.xMax);
    widenRange(p.y, box.yMin, box.yMax);
    widenRange(p.z, box.zMin, box.zMax);
}

// The plane's own box. The last test writes a lower z into the x minimum: the z minimum
// keeps the first corner's z. Hosts' drawings were made with this box, so it stays.
void widenPlane(CVRPlane &plane, const C3Point &p, bool first) {
    if (first) {
        plane.m_fMinX = plane.m_fMaxX = p.x;
        plane.m_fMinY = plane.m_fMaxY = p.y;
        plane.m_fMinZ = plane.m_fMaxZ = p.z;
        return;
    }
    widenRange(p.x, plane.m_fMinX, plane.m_fMaxX);
    widenRange(p.y, plane.m_fMinY, plane.m_fMaxY);
    if (p.z > plane.m_fMaxZ)
        plane.m_fMaxZ = p.z;
    if (p.z < plane.m_fMinZ)
        plane.m_fMinX = p.z;
}

// Cell centres from lo + cell/2 while at most hi.
double cellsOn(float lo, float hi, double cell) {
    const double span = static_cast<double>(hi) - static_cast<double>(lo) - cell / 2.0;
    return span < 0.0 ? 0.0 : std::floor(span / cell) + 1.0;
}

// Generates each entry in order, leaving the last result in result; false at the first that
// fails, with its result. An empty list leaves result as it was.
template <typename List>
bool generateEach(List &list, int &result) {
    for (auto &entry : list) {
        result = entry->Generate();
        if (result != 0) {
            return false;
        }
    }
    return true;
}
}  // namespace

int CDSC_World::Generate() {
    int result = kNothingDone;
    for (auto &constant : m_Constants) {
        constant->m_pWorld = this;
        result = constant->Generate();
        if (result != 0) {
            return result;
        }
    }
    m_Planes.clear();
    m_Points.clear();
    if (m_pCode4 == nullptr) {
        return -1;
    }
    Box box;
    bool firstOfAll = true;
    for (auto &scene : m_Scenes) {
        scene->m_pWorld = this;
        result = scene->Generate();
        if (result != 0) {
            m_Planes.clear();
            m_Points.clear();
            return result;
        }
        for (auto &plane : scene->m_Planes) {
            plane->m_Material.GetCoefficients(m_pCode4, plane->m_strMaterial);
            plane->m_strImage = plane->m_Material.m_strImage;
            m_Planes.push_back(plane.get());
            bool firstOfPlane = true;
            for (const auto &corner : plane->m_Points) {
                widen(box, *corner, firstOfAll);
                widenPlane(*plane, *corner, firstOfPlane);
                firstOfAll = false;
                firstOfPlane = false;
            }
        }
    }
    m_fXMin = box.xMin;
    m_fXMax = box.xMax;
    m_fYMin = box.yMin;
    m_fYMax = box.yMax;
    m_fZMin = box.zMin;
    m_fZMax = box.zMax;
    m_centre.x = (m_fXMin + m_fXMax) / 2.0f;
    m_centre.y = (m_fYMin + m_fYMax) / 2.0f;
    m_centre.z = (m_fZMin + m_fZMax) / 2.0f;
    m_fMaxMid = std::max(
        {(m_fXMin + m_fXMax) / 2.0f, (m_fYMin + m_fYMax) / 2.0f, (m_fZMin + m_fZMax) / 2.0f});
    // Sums of absolute values: the size of the box only where it holds the origin.
    m_fExtent =
        std::max({std::fabs(m_fXMin) + std::fabs(m_fXMax), std::fabs(m_fYMin) + std::fabs(m_fYMax),
                  std::fabs(m_fZMin) + std::fabs(m_fZMax)});
    m_fVolume = CountVolume();

    if (!generateEach(m_VRSources, result) || !generateEach(m_VRClients, result)) {
        m_Planes.clear();
        m_Points.clear();
    }
    return result;
}

float CDSC_World::CountVolume() const {
    const float lo[3] = {m_fXMin, m_fYMin, m_fZMin};
    const float hi[3] = {m_fXMax, m_fYMax, m_fZMax};
    double cell[3] = {1.0, 1.0, 1.0};
    double n[3] = {};
    for (int a = 0; a < 3; ++a) {
        if (!std::isfinite(lo[a]) || !std::isfinite(hi[a])) {
            return 0.0f;
        }
        n[a] = cellsOn(lo[a], hi[a], cell[a]);
    }
    // Thinner than a cell on an axis: no cell lies inside.
    if (n[0] * n[1] * n[2] == 0.0) {
        return 0.0f;
    }
    // Too many cells: the axis with the most gets cells twice as wide, until the count is
    // bearable. An axis of two cells or more keeps at least one, so no room vanishes.
    while (n[0] * n[1] * n[2] > kMaxVolumeCells) {
        const int a = static_cast<int>(std::max_element(n, n + 3) - n);
        cell[a] *= 2.0;
        n[a] = cellsOn(lo[a], hi[a], cell[a]);
    }
    double count = 0.0;
    C3Point p;
    for (double i = 0; i < n[0]; ++i) {
        p.x = static_cast<float>(lo[0] + cell[0] / 2.0 + i * cell[0]);
        for (double j = 0; j < n[1]; ++j) {
            p.y = static_cast<float>(lo[1] + cell[1] / 2.0 + j * cell[1]);
            for (double k = 0; k < n[2]; ++k) {
                p.z = static_cast<float>(lo[2] + cell[2] / 2.0 + k * cell[2]);
                count += IsPointInsize(p);
            }
        }
    }
    return static_cast<float>(count * cell[0] * cell[1] * cell[2]);
}

int CDSC_World::IsPointInsize(C3Point p) const {
    for (const CVRPlane *plane : m_Planes) {
        float d = 0.0f;
        plane->Distance(p, d);
        if (d < 0.0f) {
            return 0;
        }
    }
    return 1;
}

int CDSC_World::UpdateMaterialForPlane(CVRPlane *pPlane) {
    if (m_pCode4 == nullptr) {
        return -1;
    }
    if (pPlane != nullptr) {
        pPlane->m_Material.GetCoefficients(m_pCode4, pPlane->m_strMaterial);
        pPlane->m_strImage = pPlane->m_Material.m_strImage;
    }
    return 0;
}
