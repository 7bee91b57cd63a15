// The facade's project files. The engine lock is held from the first byte to the last, so
// that a project is the state of one moment, and is released on every way out.
#include <mutex>

#include "platform/Archive.h"
#include "platform/FileReplace.h"
#include "platform/Report.h"
#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace {
constexpr const char *kCaption = "Quendarik";
}  // namespace

int CQKSDK::qk_File_Save(const char *pcPath, qk::CObject *pExtra) {
    if (pcPath == nullptr || *pcPath == '\0') {
        return -1;
    }
    const std::string path = pcPath;
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    qk::CMemoryStream stream;
    try {
        qk::CArchive ar(stream, qk::CArchive::store);
        m_pProcessor->Serialize(ar);
        if (pExtra != nullptr) {
            pExtra->Serialize(ar);
        }
    } catch (const std::exception &e) {
        qk::Report(path + ": the project could not be written (" + e.what() + ").", kCaption,
                   qk::Severity::Error);
        return -1;
    }
    std::string error;
    if (!qk::ReplaceFile(path, stream.Bytes(), error)) {
        qk::Report(path + ": the project could not be written (" + error + ").", kCaption,
                   qk::Severity::Error);
        return -1;
    }
    return 0;
}

int CQKSDK::qk_File_Open(const char *pcPath, qk::CObject *pExtra) {
    if (pcPath == nullptr || *pcPath == '\0') {
        return -1;
    }
    const std::string path = pcPath;
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    qk::CFileStream file;
    if (!file.Open(path, false)) {
        qk::Report(path + ": the project file can't be opened.", kCaption, qk::Severity::Error);
        return -1;
    }
    try {
        qk::CArchive ar(file, qk::CArchive::load);
        CQUENDARIK_PROCESSOR::SProject project = m_pProcessor->ReadProject(ar);
        if (pExtra != nullptr) {
            pExtra->Serialize(ar);
        }
        m_pProcessor->CommitProject(project);
        m_posVsrc = -1;  // the list walked is gone
    } catch (const std::exception &e) {
        qk::Report(path + ": not a project, or a damaged one (" + e.what() + ").", kCaption,
                   qk::Severity::Error);
        return -1;
    }
    return 0;
}
