# The programs beside the tool, and what they share: ELF files, command lines, output files.
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libelf REQUIRED IMPORTED_TARGET libelf)
pkg_check_modules(libarchive REQUIRED IMPORTED_TARGET libarchive)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)

add_library(ordwell_companion STATIC
  binary/demangle.cpp
  binary/elf_file.cpp
  binary/function_table.cpp
  binary/object_list.cpp
  binary/thin_archive.cpp
  support/companion.cpp
  support/output_file.cpp)
target_link_libraries(ordwell_companion PUBLIC ordwell_core CLI11::CLI11 PkgConfig::libelf)
target_link_libraries(ordwell_companion PRIVATE iberty)
target_compile_definitions(ordwell_companion PRIVATE ORDWELL_VERSION="${PROJECT_VERSION}")

# Each companion is a library and its main: the fuzz targets run the libraries.
add_library(ordwell_import STATIC
  import/call_table.cpp
  import/callgrind.cpp
  import/comparison.cpp
  import/csv.cpp
  import/fdata.cpp
  import/first_run.cpp
  import/gmon.cpp
  import/gperftools.cpp
  import/import_run.cpp
  import/names.cpp
  import/objects.cpp
  import/open_file.cpp
  import/pair_table.cpp
  import/pairs.cpp
  import/perf.cpp
  import/perf_data.cpp
  import/perf_line.cpp
  import/perf_mappings.cpp
  import/pprof.cpp
  import/profile_format.cpp
  import/profile_input.cpp
  import/profile_names.cpp
  import/profile_source.cpp
  import/refused.cpp
  import/stacks.cpp
  import/unpacker.cpp
  import/weighed.cpp)
target_link_libraries(ordwell_import PUBLIC ordwell_companion PkgConfig::libarchive ZLIB::ZLIB Threads::Threads)

add_executable(ordwell-import import/main.cpp)
target_link_libraries(ordwell-import PRIVATE ordwell_import)

add_library(ordwell_export STATIC
  export/bolt.cpp
  export/coff.cpp
  export/gold.cpp
  export/ld.cpp
  export/linker_format.cpp
  export/lld.cpp
  export/macho.cpp
  export/sections.cpp)
target_link_libraries(ordwell_export PUBLIC ordwell_companion iberty)

add_executable(ordwell-export export/main.cpp)
target_link_libraries(ordwell-export PRIVATE ordwell_export)

set(page_header ${PROJECT_BINARY_DIR}/companions/report/page_html.h)
add_custom_command(OUTPUT ${page_header}
  COMMAND ${CMAKE_COMMAND} -D INPUT=${PROJECT_SOURCE_DIR}/report/page.html -D OUTPUT=${page_header} -D NAME=page_html
          -P ${PROJECT_SOURCE_DIR}/cmake/embed.cmake
  DEPENDS report/page.html cmake/embed.cmake
  VERBATIM)
add_library(ordwell_report STATIC
  report/called_code.cpp
  report/code_map.cpp
  report/cold_start.cpp
  report/figures.cpp
  report/gates.cpp
  report/json.cpp
  report/layouts.cpp
  report/name_list.cpp
  report/page.cpp
  report/page_pictures.cpp
  report/placement.cpp
  report/result.cpp
  report/summary.cpp
  report/text.cpp
  report/verdict.cpp
  report/wording.cpp
  ${page_header})
target_link_libraries(ordwell_report PUBLIC ordwell_companion PRIVATE nlohmann_json::nlohmann_json)
target_compile_definitions(ordwell_report PRIVATE ORDWELL_VERSION="${PROJECT_VERSION}")
target_include_directories(ordwell_report PRIVATE ${PROJECT_BINARY_DIR}/companions)

add_executable(ordwell-report report/main.cpp)
target_link_libraries(ordwell-report PRIVATE ordwell_report)
