# cmake -P script: builds the library-version fuzz target when its sources
# changed, seeds the corpus and runs libFuzzer for SECONDS. The corpus is kept
# between runs. The reader needs libplist, found through pkg-config.
if(NOT CXX OR NOT EXISTS "${CXX}")
  message("fuzz: skipped (no clang++)")
  return()
endif()

set(fuzzer ${WORK_DIR}/dylib_version_fuzz)
set(seeder ${WORK_DIR}/dylib_version_seeds)
set(corpus ${WORK_DIR}/corpus)
set(reader ${SOURCE_DIR}/src/fileutils/dylib_version_macho.cpp ${SOURCE_DIR}/src/platform/plist.cpp)
set(inputs ${SOURCE_DIR}/fuzz/dylib_version_fuzz.cpp ${SOURCE_DIR}/fuzz/dylib_version_seeds.cpp
  ${reader} ${SOURCE_DIR}/src/fileutils/dylib_version_macho.h ${SOURCE_DIR}/src/platform/plist.h
  ${SOURCE_DIR}/tests/fileutils/dylib_bytes.h)
set(includes -I${SOURCE_DIR}/src -I${SOURCE_DIR}/tests)
file(MAKE_DIRECTORY ${WORK_DIR} ${corpus})

execute_process(COMMAND pkg-config --cflags libplist-2.0 OUTPUT_VARIABLE plist_cflags
  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc_cflags)
execute_process(COMMAND pkg-config --libs libplist-2.0 OUTPUT_VARIABLE plist_libs
  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc_libs)
if(NOT rc_cflags EQUAL 0 OR NOT rc_libs EQUAL 0)
  message("fuzz: skipped (no libplist-2.0 through pkg-config)")
  return()
endif()
separate_arguments(plist_cflags UNIX_COMMAND "${plist_cflags}")
separate_arguments(plist_libs UNIX_COMMAND "${plist_libs}")

set(stale FALSE)
foreach(input ${inputs})
  if(NOT EXISTS ${fuzzer} OR NOT EXISTS ${seeder} OR ${input} IS_NEWER_THAN ${fuzzer})
    set(stale TRUE)
  endif()
endforeach()

if(stale)
  # A clang++ without the fuzzer runtime cannot build even an empty target.
  file(WRITE ${WORK_DIR}/probe.cpp
    "#include <cstddef>\n#include <cstdint>\nextern \"C\" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }\n")
  execute_process(COMMAND ${CXX} -fsanitize=fuzzer ${WORK_DIR}/probe.cpp -o ${WORK_DIR}/probe
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
  file(REMOVE ${WORK_DIR}/probe.cpp ${WORK_DIR}/probe)
  if(NOT rc EQUAL 0)
    message("fuzz: skipped (${CXX} has no -fsanitize=fuzzer)")
    return()
  endif()

  execute_process(COMMAND ${CXX} -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined
      -fno-sanitize-recover=undefined ${includes} ${plist_cflags}
      ${SOURCE_DIR}/fuzz/dylib_version_fuzz.cpp ${reader} ${plist_libs} -o ${fuzzer}.new
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "fuzz: building the fuzz target failed")
  endif()
  execute_process(COMMAND ${CXX} -std=c++17 -O1 ${includes}
      ${SOURCE_DIR}/fuzz/dylib_version_seeds.cpp -o ${seeder}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "fuzz: building the seed writer failed")
  endif()
  file(RENAME ${fuzzer}.new ${fuzzer})
endif()

execute_process(COMMAND ${seeder} ${corpus} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "fuzz: writing the seed corpus failed")
endif()

execute_process(COMMAND ${fuzzer} -max_total_time=${SECONDS} -max_len=16384 -timeout=10
    -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix=${WORK_DIR}/ ${corpus}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "fuzz: the reader failed under the fuzzer (${rc}); see ${WORK_DIR}/crash-*")
endif()
message("fuzz: dylib_version passed")
