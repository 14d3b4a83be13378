#ifndef HOST_TEMPORARY_INSTALL_H
#define HOST_TEMPORARY_INSTALL_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <emsstandin/setup.h>

#include "host/console.h"

namespace emshost {

/// An install path for the platform in a temporary directory, with a directory for the report file.
/// Both are removed with the object.
class TemporaryInstall
{
public:
    /// Throws std::system_error when a directory cannot be created.
    TemporaryInstall() : m_strDirectory(std::filesystem::temp_directory_path() / "emshost-XXXXXX")
    {
        if (::mkdtemp(m_strDirectory.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), m_strDirectory);
        }
        std::filesystem::create_directories(m_strDirectory + "/ems/bin");
        std::filesystem::create_directories(m_strDirectory + "/var/dump");
        emsstandin::SetInstallPath(m_strDirectory + "/ems/bin");
    }

    ~TemporaryInstall()
    {
        std::error_code failure;
        std::filesystem::remove_all(m_strDirectory, failure);
        if (failure) {
            Message("emshost: not removed: " + m_strDirectory + ": " + failure.message());
        }
    }

    TemporaryInstall(const TemporaryInstall&) = delete;
    TemporaryInstall& operator=(const TemporaryInstall&) = delete;

private:
    std::string m_strDirectory;
};

} // namespace emshost

#endif
