// The settings store as boot treats it, through the device's own "nvram" tool.
#pragma once

#include "tools/virtual-router/defaults.h"
#include "tools/virtual-router/device_folder.h"

#include <optional>
#include <string>

namespace virtual_router {

class SettingsStore {
public:
  explicit SettingsStore(const DeviceFolder& folder) : folder_(folder) {}

  [[nodiscard]] std::optional<std::string> get(const std::string& name) const;

  /// Sets them all and makes them lasting; keys that are not named stay. Throws std::runtime_error.
  void set_and_commit(const Settings& settings) const;

  /// Takes the working copy away, as a power cut does: what was not committed is gone.
  void forget_uncommitted() const;
  /// Takes the lasting copies away too.
  void forget_everything() const;

private:
  const DeviceFolder& folder_;
};

/// What boot did to the settings, for the person who watches.
struct BootSettings {
  bool seeded = false;
  bool restored = false;
  std::string version; ///< carried by the firmware image, when that differs from before
};

/// A boot: uncommitted settings are gone; a new device gets the factory's settings; one that has
/// been asked to ("restore_defaults" is "1") gets them again, under its old identity and with the
/// records of its backup partition; the firmware image's version becomes "version_firmware".
BootSettings boot_settings(const DeviceFolder& folder, const Settings& factory);

} // namespace virtual_router
