# Installs the built library into a scratch prefix, then configures, builds
# and runs a small host project that finds it with find_package(qzkernel).
file(REMOVE_RECURSE ${WORK}/prefix ${WORK}/consumer)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install failed")
endif()
# The host project is built like the library: same compiler, same toolchain
# file (the -m32 build's).
set(_toolchain "")
if(TOOLCHAIN)
    set(_toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/consumer
                        -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${CXX} ${_toolchain}
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "find_package(qzkernel) failed in a host project")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/consumer RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the host project did not build against the installed library")
endif()
execute_process(COMMAND ${WORK}/consumer/consumer RESULT_VARIABLE rc
                OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the host project failed: ${out}")
endif()
file(GLOB_RECURSE _pc ${WORK}/prefix/lib*/qzkernel.pc)
if(NOT _pc)
    message(FATAL_ERROR "no pkg-config file installed")
endif()
message(STATUS "installed library found and called: ${out}")
