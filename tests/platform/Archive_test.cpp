#include "platform/Archive.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Object.h"

using qk::CArchive;
using qk::CArchiveException;
using qk::CMemoryStream;

namespace {
std::vector<uint8_t> storeString(const std::string &s) {
    CMemoryStream out;
    CArchive ar(out, CArchive::store);
    ar << s;
    return out.Bytes();
}

std::string loadString(const std::vector<uint8_t> &bytes) {
    CMemoryStream in(bytes.data(), bytes.size());
    CArchive ar(in, CArchive::load);
    std::string s;
    ar >> s;
    return s;
}

class Probe : public qk::CObject {
    QK_DECLARE_SERIAL(Probe)
  public:
    void Serialize(CArchive &ar) override {
        if (ar.IsStoring()) {
            ar << value;
        } else {
            ar >> value;
        }
    }
    int32_t value = 0;
};
QK_IMPLEMENT_SERIAL(Probe)
}  // namespace

TEST(Archive, NumbersAreLittleEndian) {
    CMemoryStream out;
    CArchive ar(out, CArchive::store);
    ar << int32_t{0x01020304} << 1.0f << int16_t{-2};
    const std::vector<uint8_t> expected = {0x04, 0x03, 0x02, 0x01, 0x00,
                                           0x00, 0x80, 0x3F, 0xFE, 0xFF};
    EXPECT_EQ(out.Bytes(), expected);
}

TEST(Archive, CountedStringsUseTheThreeLengthForms) {
    // Below 255: one byte. Up to 0xFFFE: 0xFF and two bytes. Beyond: 0xFF, 0xFFFF, four bytes.
    const std::pair<size_t, std::vector<uint8_t>> forms[] = {
        {254, {254}},
        {255, {0xFF, 0xFF, 0x00}},
        {70000, {0xFF, 0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}}};
    for (const auto &[length, head] : forms) {
        const auto stored = storeString(std::string(length, 'a'));
        ASSERT_EQ(stored.size(), head.size() + length);
        EXPECT_EQ(std::vector<uint8_t>(stored.begin(), stored.begin() + head.size()), head)
            << length;
    }

    for (size_t n :
         {size_t{0}, size_t{254}, size_t{255}, size_t{0xFFFE}, size_t{0xFFFF}, size_t{70000}}) {
        const std::string s(n, 'x');
        EXPECT_EQ(loadString(storeString(s)), s) << n;
    }
}

TEST(Archive, ReadsPastTheEndThrowInsteadOfReadingGarbage) {
    const std::vector<uint8_t> three = {1, 2, 3};
    CMemoryStream in(three.data(), three.size());
    CArchive ar(in, CArchive::load);
    int32_t v = 0;
    EXPECT_THROW(ar >> v, CArchiveException);

    // A string that claims four gigabytes in a file of a few bytes fails before allocating.
    const std::vector<uint8_t> liar = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'};
    EXPECT_THROW(loadString(liar), CArchiveException);
    const std::vector<uint8_t> truncated = {10, 'a', 'b'};
    EXPECT_THROW(loadString(truncated), CArchiveException);
}

TEST(Archive, ObjectsComeBackByClassName) {
    Probe probe;
    probe.value = 42;
    CMemoryStream out;
    {
        CArchive ar(out, CArchive::store);
        ar.WriteObject(probe);
    }
    CMemoryStream in(out.Bytes().data(), out.Bytes().size());
    CArchive ar(in, CArchive::load);
    auto object = ar.ReadObject();
    auto *back = dynamic_cast<Probe *>(object.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->value, 42);

    const std::string unknown = "\x07NoClass";
    CMemoryStream bad(unknown.data(), unknown.size());
    CArchive badAr(bad, CArchive::load);
    EXPECT_THROW(badAr.ReadObject(), CArchiveException);
}

TEST(Archive, FileStreamKnowsWhatRemains) {
    const std::string path = testing::TempDir() + "archive_test.bin";
    {
        qk::CFileStream file;
        ASSERT_TRUE(file.Open(path, true));
        CArchive ar(file, CArchive::store);
        ar << int32_t{7} << std::string("abc");
    }
    qk::CFileStream file;
    ASSERT_TRUE(file.Open(path, false));
    EXPECT_EQ(file.Remaining(), 8);
    CArchive ar(file, CArchive::load);
    int32_t v = 0;
    std::string s;
    ar >> v >> s;
    EXPECT_EQ(v, 7);
    EXPECT_EQ(s, "abc");
    EXPECT_EQ(file.Remaining(), 0);
    std::remove(path.c_str());
}
