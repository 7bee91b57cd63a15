// The expression evaluator of the world: recursive descent straight on the characters of a
// formula, without tokens or tree.
//
//   Expression       := SimpleExpression { ("+" | "-") SimpleExpression }
//   SimpleExpression := Term { ("*" | "/") Term }
//   Term             := SignFactor { "^" SignFactor }        (left-associative: 2^3^2 = 64)
//   SignFactor       := "-" Factor | Factor                   (-2^2 = 4)
//   Factor           := number | name Factor | "(" Expression ")"
//
// Blanks may stand anywhere, numbers included ("1 2" reads as 1). Names are case-blind and
// matched by prefix in table order, so "SQR" (the square root) shadows "SQRT". There are no
// constants or variables. A value error (division by zero, a root of a negative number) is
// noted in the reason text and parsing goes on; only a formula not read to its end gives an
// error position. Its messages are German and stay so, word for word.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CHELPER_FormulaParser {
  public:
    // Deeper nesting of parentheses, signs and names than this is refused as an error.
    static constexpr int kMaxDepth = 256;

    CHELPER_FormulaParser();

    // Evaluates formula. errPos is 0 when it was read to its end (errText may still hold a
    // value error such as " (Division durch Null)"), else the 1-based position where reading
    // stopped, with errText saying so. x is kept for the functions; 0 becomes 1e-99.
    double Calculation(const std::string &formula, double x, unsigned short &errPos,
                       std::string &errText);

    void SetFormula(const std::string &formula) { m_strFormula = formula; }
    std::string GetFormula() const { return m_strFormula; }
    // index 1 to 9; anything else is reported as a program error.
    void SetFunctConst(int index, double value);
    // Copies in to out: it walks over "exp" and the following ")" and changes nothing.
    void ReplaceExpWithImaginary(const std::string &in, std::string &out) const;

  private:
    double Expression(size_t &pos, char &c);
    double SimpleExpression(size_t &pos, char &c);
    double Term(size_t &pos, char &c);
    double SignFactor(size_t &pos, char &c);
    double Factor(size_t &pos, char &c);
    void Char_n(size_t &pos, char &c) const;

    double Number(size_t &pos, char &c);
    // The index of the name standing at pos, or 0.
    size_t MatchName(size_t pos) const;
    static double Apply(size_t index, double x);

    std::string m_strFormula;
    std::string m_strExpression;  // the formula being read, with a NUL character at its end
    std::string m_strError;       // reason text set by the rules
    double m_dX = 1e-99;
    double m_dFunctConst[10] = {};  // 1 to 9 used
    std::vector<std::string> m_Functions;
    int m_iDepth = 0;
};
