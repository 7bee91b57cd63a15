#include "sdk/SourceKinds.h"

#include <filesystem>

#include "audio/CSOURCE_SOUNDCARD.h"
#include "platform/Report.h"
#include "sources/CSOURCE_AC3.h"
#include "sources/CSOURCE_GAUSS.h"
#include "sources/CSOURCE_HOSTFED.h"
#include "sources/CSOURCE_MP3.h"
#include "sources/CSOURCE_WAVE.h"

namespace qk::sources {
namespace {
constexpr const char *kCaption = "Quendarik";

template <typename T>
std::unique_ptr<CSOURCE> make() {
    return std::make_unique<T>();
}

template <typename T>
bool is(const CSOURCE &source) {
    return dynamic_cast<const T *>(&source) != nullptr;
}

// Every source is a plain source.
bool isSource(const CSOURCE &) {
    return true;
}

// A wave source takes its file as a request too, so that play opens it.
bool prepareWave(CSOURCE_FILE &source, const std::string &strPath) {
    source.SetFile(strPath);
    return true;
}

// A file that is there but isn't MPEG audio is refused now rather than playing silence; a
// missing file is accepted and reported when play opens it.
bool prepareMP3(CSOURCE_FILE &source, const std::string &strPath) {
    if (std::filesystem::exists(strPath) && source.CheckFileName(strPath) != 0) {
        qk::Report(strPath + ": not an MPEG audio file.", kCaption, qk::Severity::Error);
        return false;
    }
    return true;
}

// From the base down: the last kind a source is counts, so that the most derived one is told.
const SSourceKind kKinds[] = {
    {1, nullptr, make<CSOURCE>, isSource, nullptr},
    {2, nullptr, make<CSOURCE_GAUSS>, is<CSOURCE_GAUSS>, nullptr},
    {3, nullptr, make<CSOURCE_SOUNDCARD>, is<CSOURCE_SOUNDCARD>, nullptr},
    {4, "WAV", make<CSOURCE_WAVE>, is<CSOURCE_WAVE>, prepareWave},
    {5, nullptr, make<CSOURCE_WINAMP>, is<CSOURCE_WINAMP>, nullptr},
    {6, nullptr, make<CSOURCE_VST>, is<CSOURCE_VST>, nullptr},
    {7, nullptr, make<CSOURCE_DXi2>, is<CSOURCE_DXi2>, nullptr},
    {8, nullptr, make<CSOURCE_WMP>, is<CSOURCE_WMP>, nullptr},
    {9, "AC3", make<CSOURCE_AC3>, is<CSOURCE_AC3>, nullptr},
    {10, "MP3", make<CSOURCE_MP3>, is<CSOURCE_MP3>, prepareMP3},
};
}  // namespace

const SSourceKind *KindOfTag(int32_t iTag) {
    for (const SSourceKind &kind : kKinds) {
        if (kind.iTag == iTag) {
            return &kind;
        }
    }
    return nullptr;
}

const SSourceKind *KindOfExtension(const std::string &strExtension) {
    for (const SSourceKind &kind : kKinds) {
        if (kind.pcExtension != nullptr && strExtension == kind.pcExtension) {
            return &kind;
        }
    }
    return nullptr;
}

int32_t TagOf(const CSOURCE &source) {
    int32_t tag = kKinds[0].iTag;
    for (const SSourceKind &kind : kKinds) {
        if (kind.pfnIs(source)) {
            tag = kind.iTag;
        }
    }
    return tag;
}

}  // namespace qk::sources
