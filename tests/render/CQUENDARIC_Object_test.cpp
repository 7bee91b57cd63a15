#include "render/CQUENDARIC_Object.h"

#include <gtest/gtest.h>

#include "render/CQUENDARIC_Object_Sink.h"

// The listener's signal that it moved: set only by a change beyond 0.001 m on a coordinate.
TEST(CQUENDARIC_Object, MoveLookAtIgnoresChangesWithinTheTolerance) {
    CQUENDARIC_Object_Sink sink;
    sink.m_iMoved = 0;
    sink.Move_LookAt(C3Point(0.0009, -0.0009, 0.0, 0), C3Point(0.0, 1.0005, 0.0, 0));
    EXPECT_EQ(sink.m_iMoved, 0);
    EXPECT_EQ(sink.m_position.x, 0.0f);
    EXPECT_EQ(sink.m_lookAt.y, 1.0f);
    sink.Move_LookAt(C3Point(0.0, 0.0, 0.0, 0), C3Point(0.0, 1.002, 0.0, 0));
    EXPECT_EQ(sink.m_iMoved, 1);
    EXPECT_FLOAT_EQ(sink.m_lookAt.y, 1.002f);
}
