// Where the system keeps its files, and the splitting of paths that may use either separator.
#pragma once

#include <string>

namespace qk {

// The common folder: $QK_COMMON_ROOT, else $XDG_DATA_HOME/quendarik, else
// ~/.local/share/quendarik. Files the system places below it keep their folder words
// ("TORVELLAN/Common/QKHRTF", ...).
std::string CommonFolder();

// The installed read-only data folder (<prefix>/share/quendarik), or $QK_DATA_DIR.
std::string DataFolder();

// The folder of the settings file: $QK_SETTINGS_DIR; else the folder of the loaded settings
// module when one is loaded (modulePath non-empty); else the folder of the host program.
std::string SettingsFolder(const std::string &modulePath = std::string());

// The part behind the last '/' or '\' (the whole path when there is none).
std::string FileNamePart(const std::string &path);
// The part before the last '/' or '\' (empty when there is none).
std::string FolderPart(const std::string &path);

// True for "/..." and for a drive path such as "C:\...".
bool IsAbsolutePath(const std::string &path);

// Joins a folder and a relative path with '/'.
std::string JoinPath(const std::string &folder, const std::string &relative);

// A file that does not exist below the common folder is looked up at the same place below
// the data folder. Returns the first that exists, else the path unchanged.
std::string ResolveDataPath(const std::string &path);

std::string ToUpper(std::string text);

}  // namespace qk
