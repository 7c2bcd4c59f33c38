# The flags of the house. Warnings are errors everywhere; the daemon's rooms and the platform do
# without exceptions, RTTI and guarded statics, so that rcmd needs nothing but the C library.
add_library(house_warnings INTERFACE)
target_compile_options(house_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>)

add_library(house_daemon INTERFACE)
target_compile_options(house_daemon INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
target_link_libraries(house_daemon INTERFACE house_warnings)

# What surrounds the daemon (tests, server, tools) uses the C++ library's containers, over which
# GCC 12 gives false alarms of these kinds when it inlines them.
add_library(house_free INTERFACE)
target_compile_options(house_free INTERFACE
  $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-restrict>)
if(RCMD_QUICK_BUILD)
  target_compile_options(house_free INTERFACE -O0)
endif()
target_link_libraries(house_free INTERFACE house_warnings)
