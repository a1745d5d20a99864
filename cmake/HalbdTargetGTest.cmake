# GoogleTest and GoogleMock for a cross build, compiled from Debian's googletest sources with the
# target's compiler. find_package(GTest) anywhere in the tree is redirected to these targets
# (GTest::gtest, GTest::gtest_main, GTest::gmock, GTest::gmock_main), so the test directories
# read the same on the host and on the target.
if(CMAKE_VERSION VERSION_LESS 3.24)
  message(FATAL_ERROR "A cross build with tests needs CMake 3.24 or later (OVERRIDE_FIND_PACKAGE)")
endif()

if(NOT HALBD_GTEST_SOURCE_DIR)
  set(HALBD_GTEST_SOURCE_DIR /usr/src/googletest)
endif()
if(NOT EXISTS ${HALBD_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest sources in ${HALBD_GTEST_SOURCE_DIR} "
                      "(Debian package googletest; or set HALBD_GTEST_SOURCE_DIR)")
endif()

# Only the test programs use it: nothing of it is installed.
set(INSTALL_GTEST OFF CACHE BOOL "Install GoogleTest with the project" FORCE)

include(FetchContent)
FetchContent_Declare(GTest SOURCE_DIR ${HALBD_GTEST_SOURCE_DIR} OVERRIDE_FIND_PACKAGE)
FetchContent_MakeAvailable(GTest)
