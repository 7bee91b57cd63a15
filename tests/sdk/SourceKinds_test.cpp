// The table of sound source kinds: a project stores a source by its kind's tag and makes it
// again from the tag, so each tag must make a source that is told as that tag again, and each
// file name ending must lead to one file kind.
#include "sdk/SourceKinds.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "sources/CSOURCE_FILE.h"

TEST(SourceKinds, EveryTagMakesASourceOfThatTagAndEveryEndingAFileSource) {
    std::set<std::string> endings;
    int kinds = 0;
    for (int32_t tag = 0; tag <= 64; ++tag) {
        const qk::sources::SSourceKind *kind = qk::sources::KindOfTag(tag);
        if (kind == nullptr) {
            continue;
        }
        ++kinds;
        const std::unique_ptr<CSOURCE> source = kind->pfnMake();
        ASSERT_NE(source, nullptr) << tag;
        EXPECT_EQ(qk::sources::TagOf(*source), tag);
        if (kind->pcExtension != nullptr) {
            EXPECT_TRUE(endings.insert(kind->pcExtension).second) << kind->pcExtension;
            EXPECT_EQ(qk::sources::KindOfExtension(kind->pcExtension), kind);
            EXPECT_NE(dynamic_cast<CSOURCE_FILE *>(source.get()), nullptr) << tag;
        }
    }
    EXPECT_EQ(kinds, 10);
    EXPECT_EQ(endings, (std::set<std::string>{"AC3", "MP3", "WAV"}));
    EXPECT_EQ(qk::sources::KindOfExtension("OGG"), nullptr);
    EXPECT_EQ(qk::sources::KindOfExtension("wav"), nullptr);  // callers pass upper case
}
