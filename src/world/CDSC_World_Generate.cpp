// The world's generation: expressions to numbers, the flat lists and the figures of the box.
#include <algorithm>
#include <cmath>

#include "world/CDSC_World.h"

namespace {
constexpr int kNothingDone = 201;

struct Box {
    float xMin = 0, xMax = 0, yMin = 0, yMax = 0, zMin = 0, zMax = 0;
};

void widen(Box &box, const C3Point &p, bool first) {
    if (first) {
        box = {p.x, p.x, p.y, p.y, p.z, p.z};
        return;
    }
    if (p.x > box.xMax)
        box.xMax = p.x;
    if (p.x < box.xMin)
        box.xMin = p.x;
    if (p.y > box.yMax)
        box.yMax = p.y;
    if (p.y < box.yMin)
        box.yMin = p.y;
    if (p.z > box.zMax)
        box.zMax = p.z;
    if (p.z < box.zMin)
        box.zMin = p.z;
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
    if (p.x > plane.m_fMaxX)
        plane.m_fMaxX = p.x;
    if (p.x < plane.m_fMinX)
        plane.m_fMinX = p.x;
    if (p.y > plane.m_fMaxY)
        plane.m_fMaxY = p.y;
    if (p.y < plane.m_fMinY)
        plane.m_fMinY = p.y;
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

    for (auto &source : m_VRSources) {
        result = source->Generate();
        if (result != 0) {
            m_Planes.clear();
            m_Points.clear();
            return result;
        }
    }
    for (auto &client : m_VRClients) {
        result = client->Generate();
        if (result != 0) {
            m_Planes.clear();
            m_Points.clear();
            return result;
        }
    }
    return result;
}

float CDSC_World::CountVolume() const {
    for (float v : {m_fXMin, m_fXMax, m_fYMin, m_fYMax, m_fZMin, m_fZMax}) {
        if (!std::isfinite(v)) {
            return 0.0f;
        }
    }
    double cell = 1.0;
    while (cellsOn(m_fXMin, m_fXMax, cell) * cellsOn(m_fYMin, m_fYMax, cell) *
               cellsOn(m_fZMin, m_fZMax, cell) >
           kMaxVolumeCells) {
        cell *= 2.0;
    }
    const double nx = cellsOn(m_fXMin, m_fXMax, cell);
    const double ny = cellsOn(m_fYMin, m_fYMax, cell);
    const double nz = cellsOn(m_fZMin, m_fZMax, cell);
    double count = 0.0;
    for (double i = 0; i < nx; ++i) {
        for (double j = 0; j < ny; ++j) {
            for (double k = 0; k < nz; ++k) {
                C3Point p;
                p.x = static_cast<float>(m_fXMin + cell / 2.0 + i * cell);
                p.y = static_cast<float>(m_fYMin + cell / 2.0 + j * cell);
                p.z = static_cast<float>(m_fZMin + cell / 2.0 + k * cell);
                count += IsPointInsize(p);
            }
        }
    }
    return static_cast<float>(count * std::pow(cell, 3.0));
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
