// Material tables from the fuzzer. The input is a table and its index: a 32-bit
// little-endian length, that many bytes of .dbf, the rest .cdx (none when empty). Both are
// written to a folder of this process, opened, walked in every order, sought, appended to
// and indexed again.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "world/Code4.h"
#include "world/MaterialTables.h"

using namespace qk::table;

namespace {
void walk(Data4 *d4) {
    for (int rc = d4top(d4), guard = 0; rc == r4success && guard < 100000;
         rc = d4skip(d4, 1), ++guard) {
        for (const auto &field : d4->fields) {
            f4ptr(field.get());
        }
    }
    d4bottom(d4);
    d4skip(d4, -3);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string folder =
        (std::filesystem::temp_directory_path() / ("qk_fuzz_table_" + std::to_string(::getpid())))
            .string();
    static const bool made = std::filesystem::create_directories(folder) || true;
    (void)made;
    if (size < 4) {
        return 0;
    }
    size_t dbfLength = data[0] | (data[1] << 8) | (data[2] << 16) | (size_t(data[3]) << 24);
    if (dbfLength > size - 4) {
        dbfLength = size - 4;
    }
    const uint8_t *dbf = data + 4;
    const uint8_t *cdx = dbf + dbfLength;
    const size_t cdxLength = size - 4 - dbfLength;

    std::vector<IndexTag> tags;
    ParseIndex(cdx, cdxLength, tags);
    CheckTableHeader(dbf, dbfLength, dbfLength);

    const std::string path = folder + "/t";
    std::ofstream(path + ".dbf", std::ios::binary)
        .write(reinterpret_cast<const char *>(dbf), static_cast<std::streamsize>(dbfLength));
    std::error_code ec;
    std::filesystem::remove(path + ".cdx", ec);
    if (cdxLength > 0) {
        std::ofstream(path + ".cdx", std::ios::binary)
            .write(reinterpret_cast<const char *>(cdx), static_cast<std::streamsize>(cdxLength));
    }
    Code4 code;
    code4initLow(&code);
    Data4 *d4 = d4open(&code, path);
    if (d4 == nullptr) {
        return 0;
    }
    d4tagSelect(d4, nullptr);
    walk(d4);
    for (const auto &tag : d4->tags) {
        d4tagSelect(d4, tag.get());
        walk(d4);
        d4seek(d4, "ABS_FLOOR");
        d4seek(d4, "");
    }
    d4appendStart(d4, 0);
    for (const auto &field : d4->fields) {
        f4assign(field.get(), "12");
    }
    d4append(d4);
    d4reindex(d4);
    d4close(d4);
    return 0;
}
