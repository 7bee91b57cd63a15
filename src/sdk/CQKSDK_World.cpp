// The facade's Wrld family: generated rooms, world text files and .qkworld archives. Every
// operation that replaces the world takes the engine's lock, as the block path reads it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "platform/Archive.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "world/CWorld_Utils.h"
#include "world/FileBytes.h"

namespace {
// The folder of the .qkworld files: <common folder>/TORVELLAN/Common/QKWORLD.
std::string worldFolder() {
    return qk::JoinPath(qk::CommonFolder(), "TORVELLAN/Common/QKWORLD");
}

std::string dimension(float f) {
    char text[64];
    std::snprintf(text, sizeof(text), "%f", static_cast<double>(f));
    return text;
}
}  // namespace

int CQKSDK::qk_Wrld_None() {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    m_pProcessor->m_Context.m_World.ClearPlanes();
    params.m_iWorldChanged = 1;
    params.m_iWorldModel = 0;
    return 0;
}

int CQKSDK::qk_Wrld_Preset(int iPreset) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    int result = -1;
    switch (iPreset) {
        case 0:
            result = qk_Wrld_None();
            break;
        case 1:
            result = qk_Wrld_ShoeBox(2.0f, 2.0f, 2.0f);
            break;
        case 2:
            result = qk_Wrld_ShoeBox(6.0f, 6.0f, 4.0f);
            break;
        case 3:
            result = qk_Wrld_ShoeBox(10.0f, 10.0f, 5.0f);
            break;
        case 4:
            result = qk_Wrld_Trapezium(2.0f, 2.0f, 1.0f, 2.0f);
            break;
        case 5:
            result = qk_Wrld_Trapezium(6.0f, 6.0f, 4.0f, 3.5f);
            break;
        case 6:
            result = qk_Wrld_Trapezium(10.0f, 10.0f, 7.0f, 5.0f);
            break;
        default:
            break;
    }
    // Presets store their own number, an unknown one included.
    m_pProcessor->m_Parameters.m_iWorldModel = iPreset;
    return result;
}

int CQKSDK::qk_Wrld_ShoeBox(float fWidth, float fDepth, float fHeight) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    m_pProcessor->m_Context.m_World.ClearPlanes();
    CWorld_Utils::Generate_ShoeBox(&m_pProcessor->m_Context.m_World, dimension(fWidth),
                                   dimension(fDepth), dimension(fHeight));
    params.m_iWorldChanged = 1;
    params.m_iWorldModel = 1;
    return 0;
}

int CQKSDK::qk_Wrld_Trapezium(float fWidthFront, float fWidthBack, float fDepth, float fHeight) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    m_pProcessor->m_Context.m_World.ClearPlanes();
    CWorld_Utils::Generate_Trapezium(&m_pProcessor->m_Context.m_World, dimension(fWidthFront),
                                     dimension(fWidthBack), dimension(fDepth), dimension(fHeight));
    params.m_iWorldChanged = 1;
    params.m_iWorldModel = 2;
    return 0;
}

int CQKSDK::qk_Wrld_Import(const char *pcPath) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    params.m_iWorldChanged = 1;
    params.m_iWorldModel = 3;
    m_pProcessor->m_Context.m_World.ClearPlanes();
    CDSC_Scene::Import(&m_pProcessor->m_Context.m_World, pcPath != nullptr ? pcPath : "", "main gd",
                       1);
    m_pProcessor->m_Context.m_World.Generate();
    return -1;  // always: hosts have never been given anything else here
}

int CQKSDK::qk_Wrld_Set_File_Full(const char *pcPath) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    params.m_iWorldChanged = 1;
    params.m_iWorldModel = 3;
    std::string path = pcPath != nullptr ? pcPath : "";
    if (path.size() > 7 && qk::ToUpper(path.substr(path.size() - 7)) != "QKWORLD") {
        path += ".qkworld";
    }
    qk::CFileStream file;
    if (file.Open(qk::ResolveDataPath(path), false)) {
        {
            std::lock_guard<std::recursive_mutex> strings(params.m_csStrings);
            params.m_strWorldFile = path;
        }
        qk::CArchive ar(file, qk::CArchive::load);
        m_pProcessor->m_Context.m_World.Serialize(ar);  // reports an archive it can't read
        return 0;
    }
    const std::string name = qk::ToUpper(qk::FileNamePart(path));
    if (name != "DEFAULT.QKWORLD" && name != ".QKWORLD" && !name.empty()) {
        qk::Report(path + " file not found! Default QKWORLD will be used.", "World",
                   qk::Severity::Warning);
    }
    qk_Wrld_Generate_Default("Default");
    return -1;
}

int CQKSDK::qk_Wrld_Set_File(const char *pcName) {
    return qk_Wrld_Set_File_Full(
        qk::JoinPath(worldFolder(), pcName != nullptr ? pcName : "").c_str());
}

int CQKSDK::qk_Wrld_Generate_Default(const char *pcName) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    qk_Wrld_ShoeBox(5.0f, 5.0f, 3.0f);  // a room exists from here on, whatever follows
    const std::string path =
        qk::JoinPath(worldFolder(), std::string(pcName != nullptr ? pcName : "") + ".qkworld");
    qk::CFileStream existing;
    if (existing.Open(path, false)) {
        return -1;
    }
    std::error_code ec;
    std::filesystem::create_directories(worldFolder(), ec);
    qk::CMemoryStream bytes;
    qk::CArchive ar(bytes, qk::CArchive::store);
    m_pProcessor->m_Context.m_World.Serialize(ar);
    errno = 0;
    if (!qk::files::ReplaceFile(path, bytes.Bytes())) {
        const std::string reason = "Cannot write '" + path + "': " + std::strerror(errno);
        qk::Report(reason.substr(0, 255), "World", qk::Severity::Error);
        return -2;
    }
    qk_Wrld_Set_File_Full(path.c_str());
    return 0;
}

int CQKSDK::qk_Wrld_ReInitialize() {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_Context.m_World.Generate();
    m_pProcessor->m_Parameters.m_iWorldChanged = 1;
    return 0;
}
