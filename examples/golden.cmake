# Runs one scenario and compares its whole output with the committed expectation.
#   cmake -DRUNNER=<halbd-sim> [-DEMULATOR=<command line>] [-DOPTIONS=<options>]
#         -DSCENARIO=<path relative to WORKDIR>
#         -DWORKDIR=<dir>
#         -DEXPECTED_OUT=<file> [-DEXPECTED_ERR=<file>] [-DEXPECTED_RC=<n>] [-DACTUAL_DIR=<dir>]
#         [-DUPDATE=ON] -P golden.cmake
# Without EXPECTED_ERR the run must write nothing to stderr. UPDATE=ON rewrites the expectations
# from the current output instead of comparing.
cmake_minimum_required(VERSION 3.22)

if(NOT DEFINED EXPECTED_RC)
  set(EXPECTED_RC 0)
endif()

# EMULATOR (cross builds): the command line that runs a target program on this host.
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
separate_arguments(options UNIX_COMMAND "${OPTIONS}")
execute_process(COMMAND ${emulator} ${RUNNER} ${options} ${SCENARIO}
                WORKING_DIRECTORY ${WORKDIR}
                OUTPUT_VARIABLE actual_out ERROR_VARIABLE actual_err RESULT_VARIABLE rc)

if(UPDATE)
  file(WRITE ${EXPECTED_OUT} "${actual_out}")
  if(DEFINED EXPECTED_ERR)
    file(WRITE ${EXPECTED_ERR} "${actual_err}")
  endif()
  message(STATUS "updated ${EXPECTED_OUT} (exit ${rc})")
  return()
endif()

set(problems "")
if(NOT rc STREQUAL EXPECTED_RC)
  string(APPEND problems "exit status ${rc}, expected ${EXPECTED_RC}\n")
endif()

file(READ ${EXPECTED_OUT} expected_out)
if(NOT actual_out STREQUAL expected_out)
  get_filename_component(name ${EXPECTED_OUT} NAME)
  set(actual_file ${ACTUAL_DIR}/${name})
  file(WRITE ${actual_file} "${actual_out}")
  execute_process(COMMAND diff -u ${EXPECTED_OUT} ${actual_file} OUTPUT_VARIABLE difference)
  string(APPEND problems "standard output differs from ${EXPECTED_OUT}:\n${difference}\n")
endif()

set(expected_err "")
if(DEFINED EXPECTED_ERR)
  file(READ ${EXPECTED_ERR} expected_err)
endif()
if(NOT actual_err STREQUAL expected_err)
  string(APPEND problems "standard error:\n${actual_err}expected:\n${expected_err}")
endif()

if(problems)
  message(FATAL_ERROR "${SCENARIO}: ${problems}")
endif()
