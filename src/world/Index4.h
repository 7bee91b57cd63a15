// The compound index (.cdx) of a table, in this library's own on-disk form, and the key
// expressions its tags are made from.
//
// File form (all integers little-endian):
//   "QKCDX1\r\n"                                   8 bytes
//   uint32 tag count                               at most kMaxTags
//   per tag: uint8 name length, name               at most kMaxTagName characters
//            uint16 expression length, expression  at most kMaxExpression characters
//            uint32 key count                      at most kMaxKeys
//            per key: uint16 key length, key, uint32 record number (from 1)
//   the keys of a tag in ascending byte order, equal keys by record number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qk::table {

constexpr int kMaxTags = 47;  // what a compound index of the dBASE family holds
constexpr size_t kMaxTagName = 10;
constexpr size_t kMaxExpression = 255;
constexpr size_t kMaxKeyLength = 255;
constexpr uint32_t kMaxKeys = 1000000;

struct IndexKey {
    std::string key;
    int32_t record = 0;  // from 1
};

struct IndexTag {
    std::string name;        // upper case
    std::string expression;  // as given
    std::vector<IndexKey> keys;
};

// A key expression: a field name, optionally inside UPPER(...), ALLTRIM(...), TRIM(...) or
// LTRIM(...), nested in any order, in any case, with blanks around the words.
struct KeyExpression {
    std::string field;  // upper case
    // Applied from the innermost outwards.
    enum Step { Upper, AllTrim, TrimRight, TrimLeft };
    std::vector<Step> steps;
};

// False for anything else than the form above.
bool ParseKeyExpression(const std::string &text, KeyExpression &out);

// The key of a field's text (with its padding blanks), cut to kMaxKeyLength.
std::string MakeKey(const KeyExpression &expression, const std::string &fieldText);

// Sorts the keys of a tag into index order.
void SortKeys(std::vector<IndexKey> &keys);

// Reads an index file's bytes. False, with tags untouched, when the bytes are not exactly
// one index of this form within the limits above.
bool ParseIndex(const uint8_t *data, size_t size, std::vector<IndexTag> &tags);

// The bytes of an index file.
std::vector<uint8_t> StoreIndex(const std::vector<IndexTag> &tags);

}  // namespace qk::table
