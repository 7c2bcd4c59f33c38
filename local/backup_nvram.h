// The backup store: a copy of the settings in the flash partition "backup", which survives a reset
// of the live ones. The platform's tools copy the partition to an image file and back; the daemon
// maps the file and replaces values in place.
//
// The image is a 20-byte header, which is neither read nor changed, and then records "name=value",
// each ended by a NUL, NULs behind the last one. Its size never changes. Used in this order:
// init, set ..., fini, commit; nothing is printed but the line end that a set begins with.
#pragma once

namespace rcmd {

/// The store's state. It tells of the last image, whether that is still mapped or not.
extern const char* const nvram_backup_path;
extern int nvram_backup_fd;     ///< -1: none was opened
extern char* nvram_backup_mmap; ///< null: none was mapped
extern int nvram_backup_size;   ///< bytes

/// Copies the partition into the file and maps that. Whether the tool succeeded is not asked.
/// @return 0, or -1 when the file cannot be opened or mapped; nothing is held then
[[nodiscard]] int backup_nvram_init();

/// Replaces the value of the first record of that name; a name that has no record is ignored. A
/// longer value pushes what stands behind it towards the image's end, over which bytes are lost.
void backup_nvram_set(const char* name, const char* value);

/// Gives mapping and file back; the state keeps its values.
void backup_nvram_fini();

/// Copies the file to the partition. @return _eval's result
int backup_nvram_commit();

} // namespace rcmd
