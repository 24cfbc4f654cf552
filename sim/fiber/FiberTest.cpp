#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>

#include "sim/fiber/Fiber.h"

namespace sim {
namespace {

using testing::ElementsAre;

// A fiber that leaves for good at the end of its body.
template <class Body>
std::unique_ptr<Fiber> fiberOf(Body body) {
  return std::make_unique<Fiber>([body] {
    const Body own = body;  // on the stack: a fork outlives what it was forked from
    own(*Fiber::running());
    while (true) Fiber::running()->leave();
  });
}

TEST(Fiber, GoesOnWhereItLeft) {
  std::vector<int> done;
  const auto fiber = fiberOf([&](Fiber& self) {
    for (int i = 0; i < 3; ++i) {
      done.push_back(i);
      self.leave();
    }
  });
  fiber->enter();
  done.push_back(-1);
  fiber->enter();
  EXPECT_THAT(done, ElementsAre(0, -1, 1));
}

TEST(Fiber, HasItsErrorNumberForItself) {
  int seen = 0;
  const auto fiber = fiberOf([&](Fiber& self) {
    errno = EAGAIN;
    self.leave();
    seen = errno;
  });
  errno = ENOENT;
  fiber->enter();
  EXPECT_EQ(errno, ENOENT);
  fiber->enter();
  EXPECT_EQ(seen, EAGAIN);
}

// Both are in the midst of handling one when the other goes on, and each throws its own again.
TEST(Fiber, HandlesItsOwnExceptions) {
  std::vector<std::string> caught;
  const auto body = [&](const std::string& name) {
    return [&caught, name](Fiber& self) {
      try {
        try {
          throw std::runtime_error(name);
        } catch (const std::exception&) {
          self.leave();
          throw;
        }
      } catch (const std::exception& error) {
        caught.push_back(name + " " + error.what());
      }
    };
  };
  const auto a = fiberOf(body("a"));
  const auto b = fiberOf(body("b"));
  a->enter();
  b->enter();
  a->enter();
  b->enter();
  EXPECT_THAT(caught, ElementsAre("a a", "b b"));
}

TEST(Fiber, ThatIsNotEnteredAnyMoreDestroysNothing) {
  bool destroyed = false;
  struct Told {
    explicit Told(bool& told) : told_(told) {}
    ~Told() { told_ = true; }
    bool& told_;
  };
  {
    const auto fiber = fiberOf([&](Fiber& self) {
      const Told told(destroyed);
      self.leave();
    });
    fiber->enter();
  }
  EXPECT_FALSE(destroyed);
}

// Each has what was on the stack for itself from there on.
TEST(Fiber, AndItsForkGoOnFromOnePlace) {
  std::vector<std::string> seen;
  std::shared_ptr<Fiber> forked;
  const auto fiber = fiberOf([&](Fiber&) {
    volatile int local = 1;
    const auto child = Fiber::running()->fork();
    const std::string name = child ? "parent " : "child ";
    if (child) forked = child;
    for (int i = 0; i < 2; ++i) {
      seen.push_back(name + std::to_string(local));
      local = local + (name == "parent " ? 10 : 100);
      Fiber::running()->leave();
    }
  });
  fiber->enter();
  forked->enter();
  fiber->enter();
  forked->enter();
  EXPECT_THAT(seen, ElementsAre("parent 1", "child 1", "parent 11", "child 101"));
}

TEST(Fiber, ThatIsForkedMayGoBeforeItsFork) {
  std::vector<std::string> seen;
  std::shared_ptr<Fiber> forked;
  auto fiber = fiberOf([&](Fiber&) {
    const std::string text = "of both";
    if (const auto child = Fiber::running()->fork()) {
      forked = child;
      return;
    }
    seen.push_back(text);
  });
  fiber->enter();
  fiber = nullptr;
  forked->enter();
  EXPECT_THAT(seen, ElementsAre("of both"));
}

}  // namespace
}  // namespace sim
