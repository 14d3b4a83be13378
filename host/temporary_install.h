#ifndef HOST_TEMPORARY_INSTALL_H
#define HOST_TEMPORARY_INSTALL_H

#include <string>

namespace emshost {

/// An install path for the platform in a temporary directory, with a directory for the report file.
/// Both are removed with the object.
class TemporaryInstall
{
public:
    /// Creates the directories and sets the platform's install path. Throws std::system_error.
    TemporaryInstall();
    ~TemporaryInstall();
    TemporaryInstall(const TemporaryInstall&) = delete;
    TemporaryInstall& operator=(const TemporaryInstall&) = delete;

private:
    const std::string m_strDirectory;
};

} // namespace emshost

#endif
