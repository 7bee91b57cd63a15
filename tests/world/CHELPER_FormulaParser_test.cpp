#include "world/CHELPER_FormulaParser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"

namespace {
struct Result {
    double value;
    unsigned short errPos;
    std::string errText;
};

Result calc(const std::string &formula) {
    CHELPER_FormulaParser parser;
    Result r{0.0, 12345, "untouched"};
    r.value = parser.Calculation(formula, 0.0, r.errPos, r.errText);
    return r;
}

double good(const std::string &formula) {
    const Result r = calc(formula);
    EXPECT_EQ(r.errPos, 0) << formula << ": " << r.errText;
    return r.value;
}

// Double results of short formulas: exact but for the last bits of the library functions.
constexpr double kTol = 1e-12;
}  // namespace

TEST(CHELPER_FormulaParser, PrecedenceAndAssociativity) {
    EXPECT_EQ(good("1+2*3"), 7.0);
    EXPECT_EQ(good("(1+2)*3"), 9.0);
    EXPECT_EQ(good("2^3^2"), 64.0);  // left to right
    EXPECT_EQ(good("-2^2"), 4.0);    // the sign binds tighter than the power
    EXPECT_EQ(good("2*3^2"), 18.0);
    EXPECT_EQ(good("10-2-3"), 5.0);
}

TEST(CHELPER_FormulaParser, NumbersAreReadAcrossBlanksAndStopAtASecondPoint) {
    EXPECT_EQ(good("1 2 + 3"), 4.0);  // the number's text is "1 2 ", read as 1
    EXPECT_EQ(good("1.5.7"), 1.5);
    EXPECT_TRUE(std::isinf(good(std::string(400, '9'))));
    EXPECT_EQ(good("0." + std::string(400, '0') + "1"), 0.0);
}

TEST(CHELPER_FormulaParser, FunctionsTakeAFactorAndMatchByPrefix) {
    EXPECT_EQ(good("abs(-3)"), 3.0);
    // The argument of a name is a factor: "-" is none, so ABS gets 0 and the "-" subtracts.
    EXPECT_EQ(good("ABS -3"), -3.0);
    EXPECT_EQ(good("sqr(9)"), 3.0);        // SQR is the square root
    EXPECT_NE(calc("sqrt(9)").errPos, 0);  // shadowed by SQR, the "T" then stops reading
    EXPECT_NEAR(good("sinh(1)"), std::sinh(1.0), kTol);  // SINH stands before SIN
    EXPECT_NEAR(good("ArcTan(1)"), std::atan(1.0), kTol);
    EXPECT_EQ(good("int(-2.9)"), -2.0);
}

TEST(CHELPER_FormulaParser, DomainErrorsKeepTheArgumentSilently) {
    for (const char *formula : {"ln(-1)", "sqr(-1)", "log(-1)"}) {
        const Result r = calc(formula);
        EXPECT_EQ(r.value, -1.0) << formula;
        EXPECT_EQ(r.errPos, 0) << formula;
        EXPECT_EQ(r.errText, "") << formula;
    }
    EXPECT_EQ(good("exp(42)"), 42.0);
    EXPECT_EQ(good("arcsin(1)"), 1.0);  // strictly inside only
    EXPECT_EQ(good("artanh(2)"), 2.0);
}

TEST(CHELPER_FormulaParser, ValueErrorsAreNotedButDoNotStopReading) {
    Result r = calc("1/0");
    EXPECT_EQ(r.value, 1.0);
    EXPECT_EQ(r.errPos, 0);
    EXPECT_EQ(r.errText, " (Division durch Null)");
    EXPECT_EQ(calc("1/0+2").value, 3.0);

    // A non-positive base is refused unless the exponent is whole and beyond 1 in size.
    for (const char *formula : {"0^1", "(0-2)^1", "0^0.5", "(0-8)^(1/3)"}) {
        r = calc(formula);
        EXPECT_EQ(r.errPos, 0) << formula;
        EXPECT_EQ(r.errText, " (keine Wurzel aus neg. Zahl)") << formula;
    }
    EXPECT_EQ(calc("(0-2)^1").value, -2.0);
    EXPECT_EQ(good("(0-2)^2"), 4.0);
}

TEST(CHELPER_FormulaParser, PositionsOfTextsNotReadToTheEnd) {
    Result r = calc("x");
    EXPECT_EQ(r.errPos, 1);
    EXPECT_EQ(r.errText, "Error an Position 1 gefunden!");
    r = calc("1/0 w");
    EXPECT_EQ(r.errText, "Error an Position 5 gefunden (Division durch Null)!");
    r = calc("(1+2))");
    EXPECT_EQ(r.value, 3.0);
    EXPECT_EQ(r.errPos, 6);

    EXPECT_EQ(good("(1+2"), 3.0);  // a missing ")" at the end goes unnoticed
    r = calc("");
    EXPECT_EQ(r.value, 0.0);
    EXPECT_EQ(r.errPos, 0);
}

TEST(CHELPER_FormulaParser, DeepNestingIsRefusedNotFollowed) {
    const std::string deep = std::string(100000, '(') + "1";
    const Result r = calc(deep);
    EXPECT_EQ(r.value, 0.0);
    EXPECT_NE(r.errPos, 0);
    EXPECT_EQ(r.errText.rfind("Error in Calculation() weil ", 0), 0u);
    // Nesting within the limit is fine, and a parser is reusable after a refusal.
    CHELPER_FormulaParser parser;
    unsigned short pos = 0;
    std::string text;
    parser.Calculation(deep, 0.0, pos, text);
    EXPECT_EQ(parser.Calculation(std::string(50, '(') + "2" + std::string(50, ')'), 0.0, pos, text),
              2.0);
    EXPECT_EQ(pos, 0);
    // A position past the 16-bit range is reported at the range's end.
    parser.Calculation("1" + std::string(70000, ' ') + "w", 0.0, pos, text);
    EXPECT_EQ(pos, 65535);
}

TEST(CHELPER_FormulaParser, FunctionConstantsOutsideOneToNineAreAProgramError) {
    qktest::ReportRecorder reports;
    CHELPER_FormulaParser parser;
    parser.SetFunctConst(9, 1.0);
    parser.SetFunctConst(10, 1.0);
    EXPECT_EQ(reports.Texts(), (std::vector<std::string>{"ProgrammError in SetFunctConst()"}));
}
