// Makes the threads of a test what the processes of a device are to each other. A file that is
// mapped several times is mapped once, so that ThreadSanitizer sees every access of all stores to
// it; and a lock on a file, which it knows nothing of, orders threads as it orders processes.
//
// Works by the linker's --wrap of mmap, munmap, flock and close. Nothing of it orders threads but
// a lock its holders, and a mapping's making its users.
#pragma once

namespace one_mapping {

/// How many files are mapped at present.
int mapped_files();

} // namespace one_mapping
