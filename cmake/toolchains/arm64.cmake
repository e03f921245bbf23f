set(architecture arm64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(compiler aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
