// What an operation has made, or the status that says why there is nothing.
#pragma once

#include <utility>
#include <variant>

#include "lib/ipc/ipclib/ipclibStatus.h"

namespace quill::ipc {

template <class Value>
class Expected {
 public:
  Expected(Value value) noexcept : outcome_(std::move(value)) {}
  Expected(LmIpcStatusCode failure) noexcept : outcome_(failure) {}

  [[nodiscard]] explicit operator bool() const noexcept { return std::holds_alternative<Value>(outcome_); }
  // REQUIRES: there is one.
  [[nodiscard]] const Value& operator*() const noexcept { return *std::get_if<Value>(&outcome_); }
  // Success when there is a value.
  [[nodiscard]] LmIpcStatusCode status() const noexcept {
    const auto* failure = std::get_if<LmIpcStatusCode>(&outcome_);
    return failure != nullptr ? *failure : LmIpcStatusCode::Success;
  }

 private:
  std::variant<Value, LmIpcStatusCode> outcome_;
};

}  // namespace quill::ipc
