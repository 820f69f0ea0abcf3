#pragma once

#include <gtest/gtest.h>

#include <string>

#include "agentd/modules/module.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

/// A temporary root with the test module installed as "testing.so".
class Module_Fixture : public ::testing::Test {
 protected:
  Module_Fixture();

  static constexpr const char* host_uuid = "5c3e2f6a-8f0e-4a3a-9a39-5b3d8a1d1c11";
  static constexpr const char* activity_id = "aaaaaaaa-0000-4000-8000-000000000001";

  /// A definition of the test module; its name tells its job what to do.
  [[nodiscard]] static json_spirit::Object definition(const std::string& name);
  /// How many objects the module has made and not yet destroyed; -1 when it is not loaded.
  [[nodiscard]] static int living_objects() { return call_module("test_module_living_objects"); }
  /// What one of the module's functions for tests returns; -1 when it is not loaded.
  [[nodiscard]] static int call_module(const char* function);

  support::Temp_Root root;
  support::Log_Capture log;
};
