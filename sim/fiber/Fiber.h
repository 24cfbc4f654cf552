// A flow of control with a stack of its own, which goes on where it left off.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace sim {

class Fiber;

// Memory for a stack, with a page before it that nobody may touch. A fiber and its forks have one
// together, in which the one that ran last has its own.
class Stack {
 public:
  Stack();
  Stack(const Stack&) = delete;
  ~Stack();

  std::byte* begin() const { return begin_; }
  std::byte* end() const { return begin_ + size(); }
  static size_t size();

  Fiber* owner = nullptr;  // whose content it has now; null: nobody's

 private:
  std::byte* begin_;
};

// Runs only between a call of enter() and its own next leave(). Whoever never enters it again has
// killed it: nothing on its stack is destroyed.
//
// Errno and the exceptions that are being handled are each fiber's own.
class Fiber {
 public:
  // `body` runs at the first enter(), and must not return.
  explicit Fiber(std::function<void()> body);
  Fiber(const Fiber&) = delete;
  ~Fiber();

  // Runs it until it leaves. Not from within a fiber.
  void enter();
  // Goes back to who has entered; returns when entered again. Called by the fiber itself.
  void leave();

  // Makes another one that is at the same place, with the same on its stack: as processes do. To
  // it, when it is entered first, null is returned. Called by the fiber itself.
  std::shared_ptr<Fiber> fork();

  // The fiber that runs; null outside of all.
  static Fiber* running();

 private:
  // What a thread has one of, and each fiber needs its own of.
  struct OfThread {
    void* caughtExceptions = nullptr;
    unsigned uncaughtExceptions = 0;
    int error = 0;
  };

  // A fork of it.
  explicit Fiber(const Fiber* origin);

  static void start();
  static OfThread exchange(const OfThread& next);
  void onEntered();
  void save();
  void restore();

  const std::shared_ptr<Stack> stack_;
  std::function<void()> body_;
  void* at_;                 // the stack pointer while it does not run
  void* outside_ = nullptr;  // the stack pointer of who entered
  OfThread own_;
  OfThread outsides_;
  bool forks_ = false;  // has left for nothing but to be forked
  std::shared_ptr<Fiber> forked_;
  std::vector<std::byte> saved_;  // from the stack pointer on, while another has the stack
  // For AddressSanitizer.
  void* ownShadow_ = nullptr;
  void* outsideShadow_ = nullptr;
  const void* outsideBottom_ = nullptr;
  size_t outsideSize_ = 0;
};

}  // namespace sim
