// The fixture of every test that runs the library on the simulated platform.
#ifndef HALBD_TESTS_SUPPORT_SIM_TEST_H
#define HALBD_TESTS_SUPPORT_SIM_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/sim_platform.h"

class SimTest : public ::testing::Test {
 protected:
  void SetUp() override { sim::Reset(); }

  // "log(3): text" / "error(-7): text" for every message since the last reset or ClearLog().
  static std::vector<std::string> LogLines() { return sim::halLog().Lines(); }
  // "function(arguments) = rc" for every chip call since the last reset or ClearTrace().
  static std::vector<std::string> Trace() { return sim::chip().TraceTexts(); }
  static std::vector<std::string> Trace(const std::string& function) {
    return sim::chip().TraceTexts(function);
  }
  static void ClearLog() { sim::halLog().Clear(); }
  static void ClearTrace() { sim::chip().ClearTrace(); }
  // Forget what set-up did, so that the assertions see only the operation under test.
  static void ClearRecords() {
    ClearLog();
    ClearTrace();
  }
};

#endif  // HALBD_TESTS_SUPPORT_SIM_TEST_H
