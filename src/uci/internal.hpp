// Private helpers of the UCI access layer: the context guard and the three
// stdout message forms.  Only libuci's public interface is used, so the layer
// builds against any libuci.
#pragma once

#include <stdio.h>
#include <uci.h>

namespace kiv {

// Owns a libuci context; releases it (and with it every package still
// loaded) when it goes out of scope.  A context that could not be had is
// never handed to uci_free_context().
class UciContext {
 public:
  UciContext() noexcept : ctx_(uci_alloc_context()) {}
  UciContext(const UciContext &) = delete;
  UciContext &operator=(const UciContext &) = delete;
  ~UciContext() { reset(); }

  uci_context *get() const noexcept { return ctx_; }
  explicit operator bool() const noexcept { return ctx_ != nullptr; }
  // Releases the context now.
  void reset() noexcept {
    if (ctx_) {
      uci_free_context(ctx_);
      ctx_ = nullptr;
    }
  }

 private:
  uci_context *ctx_;
};

// True when the last lookup found everything its tuple named.
inline bool lookup_complete(const uci_ptr &ptr) {
  return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
}

}  // namespace kiv

// "%25s[%05d]: " messages: function name in 25 columns, line in 5 digits.
#define UCI_TRACE(fmt, ...)                                   \
  fprintf(stdout, "%25s[%05d]: " fmt, __func__, __LINE__ \
          __VA_OPT__(, ) __VA_ARGS__)
// "[%s][%d]: " messages.
#define UCI_SAY_AT(fmt, ...) \
  printf("[%s][%d]: " fmt, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
// "[%s]: " messages.
#define UCI_SAY(fmt, ...) printf("[%s]: " fmt, __func__ __VA_OPT__(, ) __VA_ARGS__)
