#include "world/CHELPER_FormulaParser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "platform/Report.h"

namespace {
constexpr double kPi = 3.141592653589793;
constexpr double kTinyX = 1e-99;  // stands for an argument of 0
constexpr double kExpLimit = 41.0;

enum Name {
    kNone,
    kAbs,
    kSqr,
    kSqrt,
    kSinh,
    kCosh,
    kTanh,
    kArctan,
    kLn,
    kLog,
    kExp,
    kSin,
    kCos,
    kTan,
    kArcsin,
    kArccos,
    kInt,
    kRad,
    kDeg,
    kArsinh,
    kArcosh,
    kArtanh
};

std::string trimWhite(const std::string &text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])) != 0) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])) != 0) {
        --end;
    }
    return text.substr(begin, end - begin);
}

// atof of digits with at most one point, in every locale. A number too large for a double is
// infinite; one too small is 0.
double parseNumber(const std::string &text) {
    size_t end = 0;
    bool point = false;
    bool wholeDigits = false;
    while (end < text.size()) {
        const char ch = text[end];
        if (ch == '.' && !point) {
            point = true;
        } else if (std::isdigit(static_cast<unsigned char>(ch)) != 0) {
            wholeDigits = wholeDigits || (!point && ch != '0');
        } else {
            break;
        }
        ++end;
    }
    double value = 0.0;
    const auto result = std::from_chars(text.data(), text.data() + end, value);
    if (result.ec == std::errc::result_out_of_range) {
        return wholeDigits ? std::numeric_limits<double>::infinity() : 0.0;
    }
    return result.ec == std::errc() ? value : 0.0;
}

bool isWhole(double v) {
    return std::isfinite(v) && std::trunc(v) == v;
}

// Counts the nesting of the rules, so that a formula of a million "(" can't exhaust the stack.
class DepthGuard {
  public:
    explicit DepthGuard(int &depth) : m_depth(depth) {
        if (++m_depth > CHELPER_FormulaParser::kMaxDepth) {
            --m_depth;
            throw std::runtime_error("zu tiefe Verschachtelung");
        }
    }
    ~DepthGuard() { --m_depth; }
    DepthGuard(const DepthGuard &) = delete;
    DepthGuard &operator=(const DepthGuard &) = delete;

  private:
    int &m_depth;
};
}  // namespace

CHELPER_FormulaParser::CHELPER_FormulaParser()
    : m_Functions{"",    "ABS", "SQR", "SQRT",   "SINH",   "COSH",  "TANH",   "ARCTAN",
                  "LN",  "LOG", "EXP", "SIN",    "COS",    "TAN",   "ARCSIN", "ARCCOS",
                  "INT", "RAD", "DEG", "ARSINH", "ARCOSH", "ARTANH"} {}

double CHELPER_FormulaParser::Calculation(const std::string &formula, double x,
                                          unsigned short &errPos, std::string &errText) {
    size_t pos = 0;
    char c = '\0';
    double value = 0.0;
    auto reportedPos = [&pos]() {
        return static_cast<unsigned short>(
            std::min<size_t>(pos, std::numeric_limits<unsigned short>::max()));
    };
    try {
        m_strError.clear();
        m_iDepth = 0;
        m_strExpression = trimWhite(formula);
        m_strExpression.push_back('\0');
        m_dX = x == 0.0 ? kTinyX : x;
        Char_n(pos, c);
        value = Expression(pos, c);
        if (c == '\0') {
            errText = m_strError;
            errPos = 0;
            return value;
        }
        errPos = reportedPos();
        errText = "Error an Position " + std::to_string(errPos) + " gefunden" + m_strError + "!";
        return value;
    } catch (const std::exception &e) {
        errText = std::string("Error in Calculation() weil ") + e.what();
    } catch (...) {
        errText = "Error in Calculation() weil ";
    }
    // The caller tells an error by its position, so an aborted reading always has one.
    errPos = std::max<unsigned short>(reportedPos(), 1);
    return 0.0;
}

void CHELPER_FormulaParser::SetFunctConst(int index, double value) {
    if (index < 1 || index > 9) {
        qk::Report("ProgrammError in SetFunctConst()", "Quendarik", qk::Severity::Error);
        return;
    }
    m_dFunctConst[index] = value;
}

void CHELPER_FormulaParser::ReplaceExpWithImaginary(const std::string &in, std::string &out) const {
    out = in;
}

void CHELPER_FormulaParser::Char_n(size_t &pos, char &c) const {
    do {
        ++pos;
        c = pos > m_strExpression.size() ? '\0' : m_strExpression[pos - 1];
    } while (c == ' ');
}

double CHELPER_FormulaParser::Expression(size_t &pos, char &c) {
    double value = SimpleExpression(pos, c);
    while (c == '+' || c == '-') {
        const char op = c;
        Char_n(pos, c);
        const double rhs = SimpleExpression(pos, c);
        value = op == '+' ? value + rhs : value - rhs;
    }
    return value;
}

double CHELPER_FormulaParser::SimpleExpression(size_t &pos, char &c) {
    double value = Term(pos, c);
    while (c == '*' || c == '/') {
        const char op = c;
        Char_n(pos, c);
        const double rhs = Term(pos, c);
        if (op == '*') {
            value *= rhs;
        } else if (rhs == 0.0) {
            m_strError = " (Division durch Null)";
        } else {
            value /= rhs;
        }
    }
    return value;
}

double CHELPER_FormulaParser::Term(size_t &pos, char &c) {
    double value = SignFactor(pos, c);
    while (c == '^') {
        Char_n(pos, c);
        const double e = SignFactor(pos, c);
        // A non-positive base is refused unless the exponent is a whole number above 1 in
        // size: 0^1, (-2)^1 and 0^0.5 keep their base, (-2)^2 and 0^2 are computed.
        if (value <= 0.0 && (std::fabs(e) <= 1.0 || !isWhole(e))) {
            m_strError = " (keine Wurzel aus neg. Zahl)";
        } else {
            value = std::pow(value, e);
        }
    }
    return value;
}

double CHELPER_FormulaParser::SignFactor(size_t &pos, char &c) {
    if (c == '-') {
        Char_n(pos, c);
        return -Factor(pos, c);
    }
    return Factor(pos, c);
}

double CHELPER_FormulaParser::Factor(size_t &pos, char &c) {
    const DepthGuard guard(m_iDepth);
    if (std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.') {
        return Number(pos, c);
    }
    if (c == '(') {
        Char_n(pos, c);
        const double value = Expression(pos, c);
        if (c == ')') {
            Char_n(pos, c);
        }
        return value;
    }
    const size_t index = MatchName(pos);
    if (index == kNone) {
        return 0.0;  // the caller stops here, and the position tells where
    }
    pos = pos - 1 + m_Functions[index].size();
    Char_n(pos, c);
    const double x = Factor(pos, c);
    return Apply(index, x);
}

double CHELPER_FormulaParser::Number(size_t &pos, char &c) {
    const size_t start = pos - 1;
    while (std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.') {
        Char_n(pos, c);
    }
    const size_t end = std::min(pos - 1, m_strExpression.size());
    return parseNumber(m_strExpression.substr(start, end - start));
}

size_t CHELPER_FormulaParser::MatchName(size_t pos) const {
    const size_t at = pos - 1;
    for (size_t index = 1; index < m_Functions.size(); ++index) {
        const std::string &name = m_Functions[index];
        if (at + name.size() > m_strExpression.size()) {
            continue;
        }
        size_t k = 0;
        while (k < name.size() &&
               std::toupper(static_cast<unsigned char>(m_strExpression[at + k])) == name[k]) {
            ++k;
        }
        if (k == name.size()) {
            return index;
        }
    }
    return kNone;
}

// A function whose argument is outside its domain is not applied: the value stays the
// argument, silently.
double CHELPER_FormulaParser::Apply(size_t index, double x) {
    switch (index) {
        case kAbs:
            return std::fabs(x);
        case kSqr:
        case kSqrt:
            return x >= 0.0 ? std::sqrt(x) : x;
        case kSinh:
            return std::sinh(x);
        case kCosh:
            return std::cosh(x);
        case kTanh:
            return std::tanh(x);
        case kArctan:
            return std::atan(x);
        case kLn:
            return x >= 0.0 ? std::log(x) : x;
        case kLog:
            return x >= 0.0 ? std::log10(x) : x;
        case kExp:
            return x <= kExpLimit ? std::exp(x) : x;
        case kSin:
            return std::sin(x);
        case kCos:
            return std::cos(x);
        case kTan:
            return std::cos(x) != 0.0 ? std::tan(x) : x;
        case kArcsin:
            return std::fabs(x) < 1.0 ? std::asin(x) : x;
        case kArccos:
            return std::fabs(x) <= 1.0 ? std::acos(x) : x;
        case kInt:
            return std::trunc(x);
        case kRad:
            return x * kPi / 180.0;
        case kDeg:
            return x * 180.0 / kPi;
        case kArsinh:
            return std::log(std::sqrt(x * x + 1.0) + x);
        case kArcosh:
            return std::fabs(x) >= 1.0 ? std::log(std::sqrt(x * x - 1.0) + x) : x;
        case kArtanh:
            return std::fabs(x) <= 1.0 ? 0.5 * std::log((1.0 + x) / (1.0 - x)) : x;
        default:
            return x;
    }
}
