// A value, or why there is none.
#pragma once

#include <utility>
#include <variant>

namespace velorin {

/// What a fallible maker returns: exactly one of a value and an error. Value and error must be
/// different types. Asking for the side that is not there is a programming error
/// (std::bad_variant_access).
///
///     auto opened = FLACDecoder::create(path);
///     if (!opened) return show(opened.error().text);
///     play(std::move(opened).value());
template <class Value, class Error>
class [[nodiscard]] Result {
 public:
  // Implicit, so that a maker can say `return decoder;` and `return DecoderError{…};`.
  Result(Value value) : _state(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : _state(std::in_place_index<1>, std::move(error)) {}

  bool hasValue() const noexcept { return _state.index() == 0; }
  explicit operator bool() const noexcept { return hasValue(); }

  Value& value() & { return std::get<0>(_state); }
  const Value& value() const& { return std::get<0>(_state); }
  Value&& value() && { return std::get<0>(std::move(_state)); }
  const Error& error() const { return std::get<1>(_state); }

  Value* operator->() { return &std::get<0>(_state); }
  const Value* operator->() const { return &std::get<0>(_state); }

 private:
  std::variant<Value, Error> _state;
};

}  // namespace velorin
