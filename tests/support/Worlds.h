// The check that two worlds generated the same planes.
#pragma once

#include <gtest/gtest.h>

#include "world/CDSC_World.h"

namespace qktest {

// Names, corner ids, materials with their coefficients, corners and plane offsets.
inline void ExpectSamePlanes(const CDSC_World &a, const CDSC_World &b) {
    ASSERT_EQ(a.m_Planes.size(), b.m_Planes.size());
    for (size_t i = 0; i < a.m_Planes.size(); ++i) {
        const CVRPlane &pa = *a.m_Planes[i];
        const CVRPlane &pb = *b.m_Planes[i];
        EXPECT_EQ(pa.m_strName, pb.m_strName) << i;
        EXPECT_EQ(pa.m_strPointIDs, pb.m_strPointIDs) << i;
        EXPECT_EQ(pa.m_strMaterial, pb.m_strMaterial) << i;
        for (size_t band = 0; band < std::size(pa.m_Material.m_fCoeff); ++band) {
            EXPECT_EQ(pa.m_Material.m_fCoeff[band], pb.m_Material.m_fCoeff[band]) << i;
        }
        ASSERT_EQ(pa.GetSize(), pb.GetSize()) << i;
        for (int k = 0; k < pa.GetSize(); ++k) {
            EXPECT_EQ(pa.Point(k) == pb.Point(k), 1) << i << " " << k;
        }
        EXPECT_FLOAT_EQ(pa.D, pb.D) << i;
    }
}

}  // namespace qktest
