# cmake -P script: builds the fuzz target NAME when its sources changed,
# seeds the corpus and runs libFuzzer for SECONDS. The corpus is kept between
# runs. FUZZ and SEEDS are the sources of the fuzz target and of its seed
# writer, DEPENDS the headers they read, all relative to SOURCE_DIR and
# separated by commas; PKG names pkg-config modules both builds need, LIBS
# further linker flags.
if(NOT CXX OR NOT EXISTS "${CXX}")
  message("fuzz: skipped (no clang++)")
  return()
endif()

foreach(list FUZZ SEEDS DEPENDS)
  string(REPLACE "," ";" ${list} "${${list}}")
  list(TRANSFORM ${list} PREPEND ${SOURCE_DIR}/)
endforeach()
string(REPLACE "," " " LIBS "${LIBS}")
separate_arguments(LIBS UNIX_COMMAND "${LIBS}")
set(fuzzer ${WORK_DIR}/${NAME}_fuzz)
set(seeder ${WORK_DIR}/${NAME}_seeds)
set(corpus ${WORK_DIR}/corpus)
set(includes -I${SOURCE_DIR}/src -I${SOURCE_DIR}/include -I${SOURCE_DIR}/tests)
file(MAKE_DIRECTORY ${WORK_DIR} ${corpus})

set(cflags "")
set(libs "")
if(PKG)
  execute_process(COMMAND pkg-config --cflags ${PKG} OUTPUT_VARIABLE cflags
    OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc_cflags)
  execute_process(COMMAND pkg-config --libs ${PKG} OUTPUT_VARIABLE libs
    OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc_libs)
  if(NOT rc_cflags EQUAL 0 OR NOT rc_libs EQUAL 0)
    message("fuzz: skipped (no ${PKG} through pkg-config)")
    return()
  endif()
  separate_arguments(cflags UNIX_COMMAND "${cflags}")
  separate_arguments(libs UNIX_COMMAND "${libs}")
endif()

set(stale FALSE)
foreach(input ${FUZZ} ${SEEDS} ${DEPENDS})
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
      -fno-sanitize-recover=undefined ${includes} ${cflags} ${FUZZ} ${libs} ${LIBS} -o ${fuzzer}.new
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "fuzz: building the ${NAME} fuzz target failed")
  endif()
  execute_process(COMMAND ${CXX} -std=c++17 -O1 ${includes} ${cflags} ${SEEDS} ${libs} ${LIBS} -o ${seeder}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "fuzz: building the ${NAME} seed writer failed")
  endif()
  file(RENAME ${fuzzer}.new ${fuzzer})
endif()

execute_process(COMMAND ${seeder} ${corpus} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "fuzz: writing the ${NAME} seed corpus failed")
endif()

execute_process(COMMAND ${fuzzer} -max_total_time=${SECONDS} -max_len=16384 -timeout=10
    -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix=${WORK_DIR}/ ${corpus}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "fuzz: ${NAME} failed under the fuzzer (${rc}); see ${WORK_DIR}/crash-*")
endif()
message("fuzz: ${NAME} passed")
