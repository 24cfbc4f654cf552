#include "sim/fiber/Fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define SIM_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(SIM_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif

// Stores the stack pointer of one flow of control and goes on with another's. What a call must keep
// is on the stacks.
extern "C" void simSwitchStack(void** from, void* to);
asm(R"(
  .text
  .globl simSwitchStack
  .type simSwitchStack, @function
simSwitchStack:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
  .size simSwitchStack, . - simSwitchStack
)");

#if defined(SIM_ADDRESS_SANITIZER)
// What was on the stack of a fiber that is never entered again is nobody's: that is no leak.
int __lsan_is_turned_off() { return 1; }
#endif

namespace sim {

namespace {

constexpr size_t pageSize = 4096;
constexpr size_t savedRegisters = 6;

Fiber* runningFiber = nullptr;

// What __cxa_get_globals() points to, in every C++ library of Linux.
struct ExceptionGlobals {
  void* caught;
  unsigned uncaught;
};

ExceptionGlobals& exceptionGlobals() {
  return *reinterpret_cast<ExceptionGlobals*>(abi::__cxa_get_globals());
}

// AddressSanitizer must be told of each change of stacks. `shadow` is null when the stack that is
// left will never be used again.
void beforeSwitch(void** shadow, const void* bottom, size_t size) {
#if defined(SIM_ADDRESS_SANITIZER)
  __sanitizer_start_switch_fiber(shadow, bottom, size);
#else
  (void)shadow, (void)bottom, (void)size;
#endif
}

void afterSwitch(void* shadow, const void** bottom, size_t* size) {
#if defined(SIM_ADDRESS_SANITIZER)
  __sanitizer_finish_switch_fiber(shadow, bottom, size);
#else
  (void)shadow, (void)bottom, (void)size;
#endif
}

void allowAll(void* memory, size_t size) {
#if defined(SIM_ADDRESS_SANITIZER)
  __asan_unpoison_memory_region(memory, size);
#else
  (void)memory, (void)size;
#endif
}

// Stacks that were given back: a new one costs a page fault for each page that is used.
std::vector<std::byte*>& spareStacks() {
  static std::vector<std::byte*> spare;
  return spare;
}

std::byte* mapStack(size_t size) {
  void* const all = mmap(nullptr, size + pageSize, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (all == MAP_FAILED || mprotect(all, pageSize, PROT_NONE) != 0) std::abort();
  return static_cast<std::byte*>(all) + pageSize;
}

}  // namespace

size_t Stack::size() {
#if defined(SIM_ADDRESS_SANITIZER)
  return 1024 * 1024;
#else
  return 256 * 1024;
#endif
}

Stack::Stack() {
  if (spareStacks().empty()) {
    begin_ = mapStack(size());
  } else {
    begin_ = spareStacks().back();
    spareStacks().pop_back();
  }
}

Stack::~Stack() {
  allowAll(begin_, size());
  spareStacks().push_back(begin_);
}

Fiber::Fiber(std::function<void()> body)
    : stack_(std::make_shared<Stack>()), body_(std::move(body)) {
  // As simSwitchStack() leaves it, with start() to return to, as if that had been called.
  auto** top = reinterpret_cast<void**>(stack_->end());
  *--top = nullptr;
  *--top = reinterpret_cast<void*>(&Fiber::start);
  for (size_t i = 0; i < savedRegisters; ++i) *--top = nullptr;
  at_ = top;
  stack_->owner = this;
}

Fiber::Fiber(const Fiber* origin) : stack_(origin->stack_), at_(origin->at_), own_(origin->own_) {}

Fiber::~Fiber() {
  if (stack_->owner == this) stack_->owner = nullptr;
}

Fiber* Fiber::running() { return runningFiber; }

Fiber::OfThread Fiber::exchange(const OfThread& next) {
  ExceptionGlobals& exceptions = exceptionGlobals();
  const OfThread before{exceptions.caught, exceptions.uncaught, errno};
  exceptions = {next.caughtExceptions, next.uncaughtExceptions};
  errno = next.error;
  return before;
}

void Fiber::start() {
  Fiber& self = *runningFiber;
  self.onEntered();
  self.body_();
  std::abort();
}

void Fiber::onEntered() { afterSwitch(ownShadow_, &outsideBottom_, &outsideSize_); }

void Fiber::save() {
  allowAll(stack_->begin(), Stack::size());
  const auto* const from = static_cast<const std::byte*>(at_);
  saved_.assign(from, static_cast<const std::byte*>(stack_->end()));
}

void Fiber::restore() {
  if (stack_->owner) stack_->owner->save();
  stack_->owner = this;
  allowAll(stack_->begin(), Stack::size());
  std::memcpy(at_, saved_.data(), saved_.size());
}

void Fiber::enter() {
  do {
    forks_ = false;
    if (stack_->owner != this) restore();
    runningFiber = this;
    outsides_ = exchange(own_);
    beforeSwitch(&outsideShadow_, stack_->begin(), Stack::size());
    simSwitchStack(&outside_, at_);
    afterSwitch(outsideShadow_, nullptr, nullptr);
    own_ = exchange(outsides_);
    runningFiber = nullptr;
    if (!forks_) return;
    // From outside, for a stack cannot copy itself while it is in use.
    forked_.reset(new Fiber(this));
    save();
    forked_->saved_ = saved_;
  } while (true);
}

// Who goes on behind the switch may be a fork of who came to it.
void Fiber::leave() {
  beforeSwitch(&ownShadow_, outsideBottom_, outsideSize_);
  simSwitchStack(&at_, outside_);
  runningFiber->onEntered();
}

std::shared_ptr<Fiber> Fiber::fork() {
  forks_ = true;
  leave();
  return std::exchange(runningFiber->forked_, nullptr);
}

}  // namespace sim
