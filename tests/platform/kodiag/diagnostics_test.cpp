#include "kodiag/diagnostics.h"

#include <gtest/gtest.h>

namespace {

using kodiag::Message;
using kodiag::except::ExceptionWithCauses;
using kodiag::util::diagnostics;

TEST(Diagnostics, TheFirstErrorIsRaisedAndTheLaterOnesAreItsCauses) {
  diagnostics diag;
  EXPECT_NO_THROW(diag.raiseIfAny());
  diag.add(
      {{"KODD:kodd", "NoSuchObject"}, {{"ObjectID", "7"}, {"ClassName", "Signal"}}, {}, {}});
  diag.append(diagnostics(Message{{"KODD:kodd", "OutOfIDs"}, {}, {}, {}}));
  const ExceptionWithCauses error = diag.extractExceptionWithCauses();
  EXPECT_TRUE(diag.empty());
  EXPECT_EQ(error.id(), "KODD:kodd:NoSuchObject");
  ASSERT_EQ(error.message().causes.size(), 1u);
  EXPECT_EQ(error.message().causes[0].id.key, "OutOfIDs");
  EXPECT_NE(std::string(error.what()).find("no object 7 of class \"Signal\""),
            std::string::npos);
}

TEST(Diagnostics, TheInnermostMessageIsBelowEveryUnitOfWork) {
  const Message cause{{"nexstore:nex", "InvalidData"}, {}, {}, {}};
  const Message inner{{"KODD:kodd", "DictFuncThrewException"}, {}, {cause}, {}};
  const Message outer{{"KODD:kodd", "DictFuncThrewException"}, {}, {inner}, {}};
  EXPECT_EQ(ExceptionWithCauses(outer).innermost().id.key, "InvalidData");
  EXPECT_EQ(ExceptionWithCauses(cause).innermost().id.key, "InvalidData");
}

}  // namespace
