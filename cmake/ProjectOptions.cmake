# The compile options of every target of the project.
add_library(project_options INTERFACE)
target_compile_features(project_options INTERFACE cxx_std_17)
target_compile_options(
  project_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual)
target_compile_definitions(project_options INTERFACE QT_NO_CAST_TO_ASCII QT_DEPRECATED_WARNINGS)
