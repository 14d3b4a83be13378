#include "host/temporary_install.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <emsstandin/setup.h>

namespace emshost {

namespace fs = std::filesystem;

namespace {

std::string MakeFolder()
{
    std::string folder = fs::temp_directory_path() / "emshost-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return folder;
}

} // namespace

TemporaryInstall::TemporaryInstall(std::string folder) : m_strFolder(std::move(folder)) {}

// From the other constructor on there is an object, and the folder goes whatever is thrown.
TemporaryInstall::TemporaryInstall() : TemporaryInstall(MakeFolder())
{
    fs::create_directories(InstallPath());
    fs::create_directories(ReportFolder());
    emsstandin::SetInstallPath(InstallPath());
}

TemporaryInstall::~TemporaryInstall()
{
    std::error_code ignored; // there is nobody to clean up for
    fs::remove_all(m_strFolder, ignored);
}

} // namespace emshost
