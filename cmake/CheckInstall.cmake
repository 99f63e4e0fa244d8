# Installs the built library into a scratch prefix, then configures, builds
# and runs a small host project that finds it with find_package(qzkernel).
file(REMOVE_RECURSE ${WORK}/prefix ${WORK}/consumer)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/consumer
                        -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${CXX}
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
if(NOT EXISTS ${WORK}/prefix/lib/pkgconfig/qzkernel.pc AND
   NOT EXISTS ${WORK}/prefix/lib/x86_64-linux-gnu/pkgconfig/qzkernel.pc)
    message(FATAL_ERROR "no pkg-config file installed")
endif()
message(STATUS "installed library found and called: ${out}")
