#ifndef HOST_TEMPORARY_INSTALL_H
#define HOST_TEMPORARY_INSTALL_H

#include <string>

namespace emshost {

/// An install path for the platform in a temporary folder, with room for the report file. The
/// folder goes with the object.
class TemporaryInstall
{
public:
    /// Makes the folder and sets the platform's install path. Throws std::system_error.
    TemporaryInstall();
    ~TemporaryInstall();
    TemporaryInstall(const TemporaryInstall&) = delete;
    TemporaryInstall& operator=(const TemporaryInstall&) = delete;

    std::string InstallPath() const { return m_strFolder + "/ems/bin"; }
    std::string ReportFolder() const { return m_strFolder + "/var/dump"; }

private:
    explicit TemporaryInstall(std::string folder);

    const std::string m_strFolder;
};

} // namespace emshost

#endif
