#include "host/temporary_install.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <emsstandin/setup.h>

namespace emshost {

namespace fs = std::filesystem;

namespace {

std::string CreateDirectory()
{
    std::string directory = fs::temp_directory_path() / "emshost-XXXXXX";
    if (::mkdtemp(directory.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), directory);
    }
    return directory;
}

} // namespace

TemporaryInstall::TemporaryInstall() : m_strDirectory(CreateDirectory())
{
    fs::create_directories(m_strDirectory + "/ems/bin");
    fs::create_directories(m_strDirectory + "/var/dump");
    emsstandin::SetInstallPath(m_strDirectory + "/ems/bin");
}

TemporaryInstall::~TemporaryInstall()
{
    std::error_code ignored; // nothing can be done about it
    fs::remove_all(m_strDirectory, ignored);
}

} // namespace emshost
