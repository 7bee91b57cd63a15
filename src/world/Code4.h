// The table layer of the materials: dBASE tables (.dbf, read and written through shapelib)
// with a compound index (.cdx) of this library's own form (world/Index4.h). The operations
// carry the names the material code has always called them by; each works on the handles
// below and never throws.
//
// A table is opened with its production index when one lies beside it (same name, .cdx),
// and without tags when none does. The keys are made again from the records whenever a
// table is opened, so a table changed by a dBASE editor that knows nothing of the index is
// still found by its keys; the index file holds the tag definitions and the keys as they
// were last written. Files are replaced through temporary files: a failed write leaves what
// was there.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "world/Index4.h"

namespace qk::table {

// Results, as the library gives them: 0 success, the r4 values for positions, negative e4
// codes for errors (also left in Code4::errorCode).
constexpr int r4success = 0;
constexpr int r4bof = 2;
constexpr int r4eof = 3;
constexpr int r4after = 4;
constexpr int r4noTag = 5;
constexpr int e4create = -10;
constexpr int e4open = -60;
constexpr int e4read = -70;
constexpr int e4write = -120;
constexpr int e4data = -200;
constexpr int e4fieldName = -210;
constexpr int e4index = -310;
constexpr int e4tagInfo = -350;
constexpr int e4parm = -930;

// Limits of a table this layer opens; larger tables are refused as foreign.
constexpr int kMaxFields = 255;
constexpr int kMaxRecords = 1000000;
constexpr int kMaxRecordLength = 65535;

struct Data4;

// The session.
struct Code4 {
    int errorCode = 0;  // the last error, 0 when the last call went well
    bool initialised = false;
};

struct FIELD4INFO {
    std::string name;  // at most 10 characters
    char type = 'C';   // 'C' character, 'N' numeric
    int len = 0;
    int dec = 0;
};

struct TAG4INFO {
    std::string name;
    std::string expression;
};

struct Field4 {
    Data4 *data = nullptr;
    std::string name;  // upper case
    char type = 'C';
    int len = 0;
    int offset = 0;  // in the record, behind the deletion flag
};

struct Tag4 {
    IndexTag index;  // name, expression, keys in order
    KeyExpression expression;
};

struct Index4 {
    Data4 *data = nullptr;
};

struct Data4 {
    Code4 *code = nullptr;
    std::string path;  // without extension
    void *dbf = nullptr;
    int recordLength = 0;
    std::vector<std::unique_ptr<Field4>> fields;
    std::vector<std::unique_ptr<Tag4>> tags;
    Tag4 *selected = nullptr;  // null: record order
    int recNo = 0;             // current record, from 1; 0 none
    size_t keyPos = 0;         // position in the selected tag's keys
    std::string record;        // the current record's bytes, or the one being appended
    bool appending = false;
};

// Checks the header of a dBASE file in bytes (the first bytes of the file, at least the
// whole header) against the limits above and the file size. False for a foreign or broken
// file, which is then never given to the dBASE reader.
bool CheckTableHeader(const uint8_t *data, size_t size, uint64_t fileSize);

int code4initLow(Code4 *c4);
int code4initUndo(Code4 *c4);

// Creates path.dbf with the fields and path.cdx with the tags (empty tags: no index file) and
// returns the open table, or null with errorCode set. An existing table of that name is only
// replaced once the new one is complete.
Data4 *d4create(Code4 *c4, const std::string &path, const std::vector<FIELD4INFO> &fields,
                const std::vector<TAG4INFO> &tags);
// Opens path (with or without ".dbf") with its production index; null with errorCode set.
Data4 *d4open(Code4 *c4, const std::string &path);
// Closes and frees the table; 0.
int d4close(Data4 *d4);

Field4 *d4field(Data4 *d4, const char *name);  // by name in any case; null when absent
Tag4 *d4tag(Data4 *d4, const char *name);      // null when absent
void d4tagSelect(Data4 *d4, Tag4 *tag);        // null selects record order

// Positions at the first record whose key in the selected tag equals the text, compared
// without trailing blanks. r4success when found; r4after (positioned on the next key) or
// r4eof when not; r4noTag without a selected tag.
int d4seek(Data4 *d4, const char *key);
int d4top(Data4 *d4);               // r4success, or r4eof for an empty table
int d4bottom(Data4 *d4);            // r4success, or r4eof for an empty table
int d4skip(Data4 *d4, long n);      // r4success, r4eof or r4bof
long d4recCountDo2(Data4 *d4);      // records, deleted ones included
int d4appendStart(Data4 *d4, int);  // a blank record to assign to
int d4append(Data4 *d4);            // writes it at the end and updates the index
// Makes the keys of every tag anew from the records and writes the index file.
int d4reindex(Data4 *d4);

// Gives the open table a production index with these tags, written at once; null with
// errorCode set.
Index4 *i4create(Data4 *d4, const char *name, const std::vector<TAG4INFO> &tags);
int i4close(Index4 *i4);

// Puts a text into the record being appended: character fields left-justified, numeric ones
// right-justified, both padded with blanks and cut to the field's length.
int f4assign(Field4 *f4, const char *text);
int f4assignInt(Field4 *f4, int value);
// dBASE fields carry no null flag: nothing to clear; 0.
int f4assignNotNull(Field4 *f4);
// The field's text in the current record, with its trailing blanks; "" without a record.
std::string f4ptr(const Field4 *f4);
int f4len(const Field4 *f4);

}  // namespace qk::table
