# Installs the built library into WORK_DIR/prefix, then builds and runs the
# example consumer against it: through find_package, and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${WORK_DIR}/build -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/kiv-consumer ${WORK_DIR})

# pkg-config: compile and link by hand with the flags it gives.
file(GLOB_RECURSE pcfile ${prefix}/*/kivframework.pc)
get_filename_component(pcdir ${pcfile} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
execute_process(COMMAND pkg-config --cflags --libs kivframework
  OUTPUT_VARIABLE flags RESULT_VARIABLE rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know kivframework")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
get_filename_component(libdir ${pcdir} DIRECTORY)
run(${CXX} -std=c++17 ${SOURCE_DIR}/examples/consumer/main.cpp ${flags}
    -Wl,-rpath,${libdir} -o ${WORK_DIR}/kiv-consumer-pc)
run(${WORK_DIR}/kiv-consumer-pc ${WORK_DIR})

# The installed GPS monitor: the library from ../lib, the daemon beside it,
# the demo drive from the installed share directory; in a namespace and a
# registry of its own.
string(RANDOM LENGTH 8 ALPHABET abcdefghijklmnopqrstuvwxyz0123456789 token)
set(ENV{KIV_NAMESPACE} pkg${token})
set(ENV{KIV_REGISTRY} ${WORK_DIR}/registry.db)
set(ENV{KIV_DEVICE_ROOT} ${WORK_DIR})
execute_process(COMMAND ${prefix}/bin/kivgpsmon --demo --duration 3
  INPUT_FILE /dev/null RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 120)
file(GLOB leftovers /dev/shm/kiv.pkg${token}.*)
if(leftovers)
  file(REMOVE ${leftovers})
endif()
if(NOT rc EQUAL 0 OR NOT out MATCHES "fix=10"
   OR NOT err MATCHES "demo drive ${prefix}/share/kiv/demo/drive.nmea")
  message(FATAL_ERROR "installed kivgpsmon failed (${rc}):\n${out}\n${err}")
endif()
message(STATUS "installed kivgpsmon:\n${out}")
