#include <gtest/gtest.h>

#include <cerrno>

#include "runtime/base/Exception.h"

namespace rt {
namespace {

TEST(Exception, SaysItsMessage) {
  const Exception e("it broke");
  EXPECT_STREQ(e.what(), "it broke");
}

TEST(Exception, EveryKindIsCaughtAsAnException) {
  EXPECT_THROW(throw ErrnoException(ENOENT, "open"), Exception);
  EXPECT_THROW(throw RangeException("range", "9"), Exception);
  EXPECT_THROW(throw NullArgumentException("T", "a"), Exception);
  EXPECT_THROW(throw ReinstantiationException("T", "a"), Exception);
  EXPECT_THROW(throw QueueFullException("q", 1), Exception);
  EXPECT_THROW(throw InternalException("x"), Exception);
  EXPECT_THROW(throw AttributeException("x"), Exception);
  EXPECT_THROW(throw Exception("x"), std::exception);
}

TEST(Exception, ErrnoExceptionSaysMessageTextAndNumber) {
  const ErrnoException e(ENOENT, "open /dev/tap7");
  EXPECT_STREQ(e.what(), "open /dev/tap7: No such file or directory (errno 2)");
  EXPECT_EQ(e.error(), ENOENT);
}

TEST(Exception, ErrnoExceptionTakesItsMessageLiterally) {
  const ErrnoException e(EPERM, "100%s");
  EXPECT_STREQ(e.what(), "100%s: Operation not permitted (errno 1)");
}

TEST(Exception, RangeExceptionSaysItsMessageAloneAndKeepsTheValue) {
  const RangeException e("too much", "4095");
  EXPECT_STREQ(e.what(), "too much");
  EXPECT_EQ(e.value(), "4095");
}

TEST(Exception, NullArgumentExceptionNamesTypeAndAttribute) {
  const NullArgumentException e("Vm::Config", "vmConfig");
  EXPECT_STREQ(e.what(), "Vm::Config::vmConfig: a null pointer is not allowed");
}

TEST(Exception, ReinstantiationExceptionNamesTypeAndAttribute) {
  const ReinstantiationException e("Vm::Root", "agent");
  EXPECT_STREQ(e.what(), "Vm::Root::agent: it exists already with a different value");
  EXPECT_EQ(e.attribute(), "agent");
}

TEST(Exception, QueueFullExceptionNamesTheQueueAndItsCapacity) {
  const QueueFullException e("requests", 65536);
  EXPECT_STREQ(e.what(), "requests: the queue is full (65536 entries)");
}

TEST(Exception, CopySaysTheSame) {
  const RangeException original("a message too long to be stored within a string itself", "9");
  RangeException copy("another", "0");
  copy = original;
  EXPECT_STREQ(copy.what(), original.what());
  EXPECT_EQ(copy.value(), original.value());
}

}  // namespace
}  // namespace rt
