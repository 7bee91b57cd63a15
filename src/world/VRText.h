// Text work shared by the VR elements: putting numbers in place of names inside an
// expression before it goes to the formula parser.
#pragma once

#include <cstddef>
#include <string>

class CDSC_World;

namespace vrtext {

// An expression never grows past this many characters by substitution; what would take it
// further is left in place, and the parser then reports it.
constexpr size_t kMaxExpressionLength = 65536;

// A number as it enters an expression: "%.3f".
std::string FormatValue(double value);

// Whether the name of length n at position p of text stands as a whole word: behind it the
// end or one of " +-*/()[]{}", before it the same or a position of 0 or 1 (the character at
// position 0 is never looked at). "^" is no separator.
bool IsWholeWord(const std::string &text, size_t p, size_t n);

// Replaces every occurrence of from, searching again from the start after each replacement.
// When to contains from, one pass from left to right is made instead, which is where the
// search from the start would never end.
void ReplaceAll(std::string &text, const std::string &from, const std::string &to);

// Each constant of the world in list order: when its first occurrence in text is a whole
// word, every occurrence is replaced by its value; otherwise the constant is left out.
void SubstituteConstants(const CDSC_World &world, std::string &text);

// Decimal commas become points.
std::string CommasToPoints(std::string text);

// Blanks off both ends.
std::string TrimBlanks(const std::string &text);

// atoi, with a value beyond an int clamped to the nearest end.
int ToInt(const std::string &text);

// The words a value may be instead of a number: "TRUE"/"true" give 1, "FALSE"/"false" 0.
// False (out untouched) for any other text.
bool BooleanWord(const std::string &text, float &out);

}  // namespace vrtext
