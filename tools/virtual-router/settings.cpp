#include "tools/virtual-router/settings.h"

#include "tools/virtual-router/child.h"
#include "tools/virtual-router/flash.h"
#include "tools/virtual-router/text_file.h"

#include <filesystem>
#include <stdexcept>

namespace virtual_router {

namespace fs = std::filesystem;

namespace {

Settings restored_settings(const DeviceFolder& folder, const SettingsStore& store,
                           const Settings& factory) {
  Settings settings = factory;
  for (const auto& name : identity_names())
    if (const auto value = store.get(name))
      settings[name] = *value;
  const auto image = read_file(folder.path("/dev/mtd/1"));
  for (const auto& [name, value] : backup_records(image.value_or("")))
    settings[name] = value;
  return settings;
}

} // namespace

void SettingsStore::forget_uncommitted() const {
  fs::remove(folder_.path("/run/nvram"));
}

void SettingsStore::forget_everything() const {
  forget_uncommitted();
  fs::remove_all(folder_.path("/flash"));
}

std::optional<std::string> SettingsStore::get(const std::string& name) const {
  Finished run = run_to_end({folder_.path("/bin/nvram"), "get", name});
  if (run.status != 0)
    return std::nullopt;
  if (!run.output.empty() && run.output.back() == '\n')
    run.output.pop_back();
  return run.output;
}

void SettingsStore::set_and_commit(const Settings& settings) const {
  std::string lines;
  for (const auto& [name, value] : settings)
    lines.append(name).append("=").append(value).append("\n");
  const std::string file = folder_.path("/run/settings.import");
  replace_file(file, lines);
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"import", "/run/settings.import"}, {"commit"}}) {
    std::vector<std::string> command = {folder_.path("/bin/nvram")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Finished run = run_to_end(command);
    if (run.status != 0)
      throw std::runtime_error("nvram " + arguments[0] + ": " + run.output);
  }
  fs::remove(file);
}

BootSettings boot_settings(const DeviceFolder& folder, const Settings& factory) {
  BootSettings done;
  const SettingsStore store(folder);
  store.forget_uncommitted();
  const auto before = store.get("version_firmware");
  Settings changes;
  if (!store.get("SN")) {
    done.seeded = true;
    changes = factory;
  } else if (store.get("restore_defaults") == "1") {
    done.restored = true;
    changes = restored_settings(folder, store, factory);
    store.forget_everything();
  }
  const auto carried = flashed_version(folder);
  if (carried)
    changes["version_firmware"] = *carried;
  if (carried && carried != before)
    done.version = *carried;
  if (done.seeded || done.restored || !done.version.empty())
    store.set_and_commit(changes);
  return done;
}

} // namespace virtual_router
