#include "sources/Ac3Settings.h"

#include <gtest/gtest.h>

TEST(Ac3Settings, TheDefaultPresetIsReadAndWhatIsWrongKeepsTheDefault) {
    struct Case {
        const char *text;
        int mode, format;
        double master;
        bool dynrng;
    };
    const Case cases[] = {
        {"", 1, 0, 1.0, true},
        {"[preset/_default]\nmode=13\nformat=3\nmaster=0.25\ndynrng=0\n", 13, 3, 0.25, false},
        {"[preset/_default]\r\n  mode = 7 ; with a comment\r\n# all of this line\n", 7, 0, 1.0,
         true},
        {"[preset/night]\nmode=0\n", 1, 0, 1.0, true},             // another preset
        {"mode=0\n[matrix/_default]\nmode=0\n", 1, 0, 1.0, true},  // outside its group
        {"[preset/_default]\nmode=17\nformat=1\nmaster=-1\n", 1, 0, 1.0, true},  // ranges
        {"[preset/_default]\nmode=2x\nformat=2.5\nmaster=nan\nmaster=inf\n", 1, 0, 1.0, true},
        {"[preset/_default\nmode=0\n[ preset / _default ]\nmode = 0", 0, 0, 1.0, true},
    };
    for (const Case &c : cases) {
        CAc3Settings settings;
        settings.Parse(c.text);
        EXPECT_EQ(settings.iMode, c.mode) << c.text;
        EXPECT_EQ(settings.iFormat, c.format) << c.text;
        EXPECT_EQ(settings.dMaster, c.master) << c.text;
        EXPECT_EQ(settings.bDynamicRange, c.dynrng) << c.text;
    }
}

TEST(Ac3Settings, MatrixDelayAndEqualizerKeysNameTheirSpeakersAndBands) {
    CAc3Settings settings;
    EXPECT_EQ(settings.matrix[0][0], 1.0);  // straight through by default
    settings.Parse(
        "[matrix/_default]\nL_SL = 0.5\nLFE_LFE = 2\nX_L = 9\nL_ = 9\n"
        "[delay/_default]\nSR = 12.5\nC = -3\n"
        "[equalizer/_default]\neq9_8 = -6\neq9_9 = 1\neq9_ = 1\n");
    EXPECT_EQ(settings.matrix[0][3], 0.5);
    EXPECT_EQ(settings.matrix[5][5], 2.0);
    EXPECT_EQ(settings.delayMs[4], 12.5);
    EXPECT_EQ(settings.delayMs[1], 0.0);
    EXPECT_EQ(settings.equalizerDb[8], -6.0);
    EXPECT_EQ(settings.equalizerDb[0], 0.0);
}
