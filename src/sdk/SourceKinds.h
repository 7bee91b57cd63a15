// The one table of sound source kinds: each kind's tag in project files, the file name ending
// that makes a file source of it (the last three characters, upper case), how it is made, and
// how a made one is recognised. The engine's AddSource_File and the project code both read it;
// a new file format is its source class and one line here.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class CSOURCE;
class CSOURCE_FILE;

namespace qk::sources {

struct SSourceKind {
    int32_t iTag;             // the kind's tag in project files
    const char *pcExtension;  // the file kinds' name ending, upper case; null for the others
    std::unique_ptr<CSOURCE> (*pfnMake)();
    bool (*pfnIs)(const CSOURCE &);  // true for this kind and the kinds derived from it
    // File kinds: readies a new source for the path before it is added; false (after telling
    // the user) refuses it. Null: nothing to do.
    bool (*pfnPrepare)(CSOURCE_FILE &, const std::string &);
};

// The kind of a tag, or null for a tag no kind has.
const SSourceKind *KindOfTag(int32_t iTag);
// The file kind of a name ending (three characters, upper case), or null.
const SSourceKind *KindOfExtension(const std::string &strExtension);
// The tag of a source's most derived kind (a wave source is also a plain source; it is
// tagged as a wave source).
int32_t TagOf(const CSOURCE &source);

}  // namespace qk::sources
