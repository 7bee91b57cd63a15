// The registry of sound field models: each facade number names one entry, and a number no
// entry has renders as it always has, with the direction's HRTF and nothing else.
#include "field/SoundFieldModel.h"

#include <gtest/gtest.h>

#include <set>

using qk::field::LatePart;
using qk::field::Model;
using qk::field::Response;

TEST(SoundFieldModel, EachNumberHasOneEntryAndOthersRenderTheDirectionOnly) {
    std::set<int> numbers;
    for (int i = 0; i < qk::field::ModelCount(); ++i) {
        const qk::field::SModel &entry = qk::field::ModelAt(i);
        EXPECT_TRUE(numbers.insert(entry.iNumber).second) << entry.iNumber;
        EXPECT_EQ(&Model(entry.iNumber), &entry);
        // A late part of its own needs something to tune it from: a room model's images.
        if (entry.late != LatePart::None) {
            EXPECT_TRUE(entry.response == Response::Room || entry.bImagesForLatePart)
                << entry.pcName;
        }
    }
    for (int number : {-1, 5, 99}) {
        const qk::field::SModel &unknown = Model(number);
        EXPECT_EQ(unknown.response, Response::Direction);
        EXPECT_EQ(unknown.late, LatePart::None);
        EXPECT_FALSE(unknown.bLevelByDistance || unknown.bMaterials || unknown.bSharedImages ||
                     unknown.bGlobalLatePart || unknown.bImagesForLatePart);
    }
}
