// Matches a callable that fails with a given message ID.
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "kodiag/diagnostics.h"

namespace vela::test {

/// `EXPECT_THAT([&] { call(); }, ThrowsId("KODD:kodd:InvalidProperty"))`
MATCHER_P(ThrowsId, id, "fails with " + std::string(id)) {
  try {
    arg();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    *result_listener << "fails with " << error.what();
    return error.id() == id;
  }
  *result_listener << "does not fail";
  return false;
}

}  // namespace vela::test
