// SPDX-License-Identifier: MIT
//
// The library's text: a reference-counted value of 8-bit bytes, UTF-8 by convention.
//
//   vx::String path = "/var";
//   path << "/" << "log";
//   std::fopen(path.buf(), "rb");
//
// A copy shares the bytes; an operation that changes a string whose bytes are shared copies them
// first, so no other handle sees the change. A string is one block of memory, the empty string
// none. The length is known and the bytes may hold NUL, though `buf()` then ends early for whoever
// reads up to the first one.
//
// Letter case is that of ASCII, whatever the locale: only A to Z and a to z differ by case.
// Nothing fails but for want of memory. Nothing touches the file system, logs, or records an error.
//
// Thread safety: see vx_ref_counted.h. Handles that share their bytes may live on different
// threads; one handle must not be changed while another thread uses that same handle.

#pragma once

#include "core/vx_ref_counted.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <new>
#include <string>
#include <string_view>

// Lets the compiler warn about a pointer into a temporary, where it can. Clang 14 looks only at the
// latest declaration of a function, so definitions repeat it.
#if __has_cpp_attribute(clang::lifetimebound)
#define VX_LIFETIMEBOUND [[clang::lifetimebound]]
#else
#define VX_LIFETIMEBOUND
#endif

namespace vx {

class StringVector;

#pragma GCC visibility push(hidden)
namespace internal {
class StringBuilder;
}
#pragma GCC visibility pop

/// A text: see the head of this file.
///
/// Operands may be a `String`, a NUL-terminated text, or, in comparisons, a `std::string_view` or
/// `std::string`. A null pointer stands for the empty text. The deleted templates refuse numbers,
/// because a literal 0 would convert to a null pointer; `nullptr` is accepted.
class String final : public RefersTo<IRefCounted> {
 public:
  /// The empty string.
  String() noexcept = default;

  /// The first `length` bytes of `text`; with length 0 the text up to its terminating NUL. A null
  /// pointer gives the empty string.
  String(const char* text, std::size_t length = 0);

  /// Not a length: `String("abc", true)` would take one byte.
  template <std::same_as<bool> Flag>
  String(const char* text, Flag flag) = delete;

  template <std::integral Number>
  String(Number number) = delete;

  /// The bytes of `text`, NUL included. A `std::string` converts to the view.
  explicit String(std::string_view text);

  /// Shares the bytes of `other`.
  String(const String& other) noexcept : RefersTo(other.retained<RefCounted>()) {}
  /// Takes the bytes of `other` over and leaves it empty.
  String(String&& other) noexcept = default;
  /// Shares the bytes of `other` in place of its own.
  String& operator=(const String& other) & noexcept { return *this = String(other); }
  /// Takes the bytes of `other` over in place of its own.
  String& operator=(String&& other) & noexcept = default;
  ~String() override { release<RefCounted>(); }

  /// Replaces the content by the NUL-terminated `text`, which may lie in this string's own buffer.
  /// A null pointer makes the string empty.
  ///
  /// Assignment requires an lvalue: `names[0] = "x"` would change a copy of the element.
  String& operator=(const char* text) &;

  template <std::integral Number>
  String& operator=(Number number) = delete;

  /// Appends in place; the text may lie in this string's own buffer. A null pointer adds nothing.
  String& operator<<(const char* text);

  /// Appends in place.
  String& operator<<(String text);

  template <std::integral Number>
  String& operator<<(Number number) = delete;

  /// As `<<`, on an lvalue.
  String& operator+=(const char* text) & { return *this << text; }

  /// As `<<`, on an lvalue.
  String& operator+=(String text) &;

  template <std::integral Number>
  String& operator+=(Number number) = delete;

  /// The NUL-terminated bytes, never null; valid while this string lives and is not changed.
  [[nodiscard]] const char* buf() const noexcept VX_LIFETIMEBOUND;

  /// The number of bytes.
  [[nodiscard]] std::size_t length() const noexcept;

  /// The bytes, valid as long as `buf()`.
  [[nodiscard]] std::string_view view() const noexcept VX_LIFETIMEBOUND;

  /// As `view()`. Explicit, because `==` and `+` with the standard's types would be ambiguous
  /// otherwise.
  [[nodiscard]] explicit operator std::string_view() const noexcept VX_LIFETIMEBOUND;

  /// A copy of the bytes.
  [[nodiscard]] explicit operator std::string() const { return std::string(view()); }

  /// Whether there are no bytes.
  [[nodiscard]] bool isEmpty() const noexcept { return length() == 0; }

  /// Whether the text begins with `prefix` (the empty one always).
  [[nodiscard]] bool startsWith(String prefix, bool ignoreCase) const noexcept;

  template <class Text>
  bool startsWith(String prefix, Text* notAFlag) const = delete;

  /// Whether the text ends with `suffix` (the empty one always).
  [[nodiscard]] bool endsWith(String suffix, bool ignoreCase) const noexcept;

  template <class Text>
  bool endsWith(String suffix, Text* notAFlag) const = delete;

  /// Three-way comparison of the bytes, unsigned, with A to Z taken as a to z: negative, 0 or
  /// positive as this text comes before, equals, or comes after `other`.
  [[nodiscard]] int compareNoCase(String other) const noexcept;

  /// The pieces between the separators, in order.
  ///
  ///   "a|b||c"   ('|', false, false) => "a", "b", "", "c"
  ///   "a|b||c"   ('|', true,  false) => "a", "b", "c"
  ///   " a | |b " ('|', true,  true)  => "a", "b"
  ///   ""         ('|', false, false) => ""
  ///   ""         ('|', true,  false) => nothing
  ///
  /// @param skipEmpty drops empty pieces, after trimming where that is asked for.
  /// @param trim removes white space (of ASCII) from both ends of each piece.
  [[nodiscard]] StringVector split(char separator, bool skipEmpty, bool trim) const;

  /// The text with `from` replaced by `to`.
  ///
  /// @param firstOnly replaces only the first occurrence.
  /// @param ignoreCase also replaces `from` in the other letter case.
  [[nodiscard]] String replace(char from, char to, bool firstOnly, bool ignoreCase) const;

  /// The text after the last occurrence of `separator`, or the whole text where there is none.
  ///
  ///   "a:b:c" (':', false) => "c"
  ///   "a:b:c" (':', true)  => ":c"
  ///   "mkDir" (':', false) => "mkDir"
  ///   "a:"    (':', false) => ""
  [[nodiscard]] String fromLast(char separator, bool keepSeparator) const;

  /// Exact equality of the bytes. A null pointer equals the empty string.
  [[nodiscard]] bool operator==(const char* text) const noexcept;

  /// Exact equality of the bytes.
  [[nodiscard]] bool operator==(String other) const noexcept;

  /// Exact equality of the bytes.
  [[nodiscard]] bool operator==(std::string_view text) const noexcept;

  template <std::integral Number>
  bool operator==(Number number) const = delete;

  /// Byte order, unsigned. A null pointer compares as the empty string.
  [[nodiscard]] std::strong_ordering operator<=>(const char* text) const noexcept;

  /// Byte order, unsigned.
  [[nodiscard]] std::strong_ordering operator<=>(String other) const noexcept;

  /// Byte order, unsigned.
  [[nodiscard]] std::strong_ordering operator<=>(std::string_view text) const noexcept;

  template <std::integral Number>
  std::strong_ordering operator<=>(Number number) const = delete;

  /// Concatenation into a new string. A null pointer adds nothing.
  [[nodiscard]] String operator+(const char* text) const;

  /// Concatenation into a new string.
  [[nodiscard]] String operator+(String text) const;

  template <std::integral Number>
  String operator+(Number number) const = delete;

  /// Concatenation into a new string. A null pointer adds nothing.
  [[nodiscard]] friend String operator+(const char* left, String right) {
    return joined(viewOf(left), right.view());
  }

  template <std::integral Number>
  friend String operator+(Number left, String right) = delete;

  /// Writes the bytes, formatted as the stream formats text.
  friend std::ostream& operator<<(std::ostream& stream, String text);

  /// The text for {fmt}. It takes a reference, because the view must outlive the call.
  [[nodiscard]] friend std::string_view format_as(const String& text VX_LIFETIMEBOUND) noexcept {
    return text.view();
  }

 private:
  friend class internal::StringBuilder;

  /// The head of a block; the bytes and their terminating NUL follow it.
  struct [[gnu::visibility("hidden")]] Text;

  /// Takes over the one reference to `text`.
  explicit String(Text& text) noexcept;

  [[nodiscard]] static std::string_view viewOf(const char* text) noexcept {
    return text == nullptr ? std::string_view() : std::string_view(text);
  }

  /// A block with the bytes of `text`, null for none.
  [[nodiscard, gnu::visibility("hidden")]] static Text* copied(std::string_view text);

  [[nodiscard]] static String joined(std::string_view left, std::string_view right);

  [[nodiscard]] Text* text() const noexcept;
  void append(std::string_view added);
};

struct String::Text final : RefCounted {
  std::size_t length = 0;
  std::size_t capacity = 0;  // bytes that fit, the terminating NUL not counted

  [[nodiscard]] char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

  /// A block with room for `capacity` bytes that holds none yet.
  [[nodiscard]] static Text* create(std::size_t capacity);

  /// Ends the text after `length` bytes.
  void setLength(std::size_t newLength) noexcept {
    length = newLength;
    bytes()[newLength] = '\0';
  }

 private:
  void destroy() noexcept override;
};

inline String::Text* String::Text::create(std::size_t capacity) {
  auto* const text = new (::operator new(sizeof(Text) + capacity + 1)) Text;
  text->capacity = capacity;
  return text;
}

inline String::Text* String::text() const noexcept {
  return static_cast<Text*>(implementation());
}

inline String::String(Text& text) noexcept : RefersTo(&text) {}

inline String::String(const char* text, std::size_t length)
    : String(length == 0 || text == nullptr ? viewOf(text) : std::string_view(text, length)) {}

inline const char* String::buf() const noexcept VX_LIFETIMEBOUND {
  Text* const held = text();
  return held == nullptr ? "" : held->bytes();
}

inline std::size_t String::length() const noexcept {
  const Text* const held = text();
  return held == nullptr ? 0 : held->length;
}

inline std::string_view String::view() const noexcept VX_LIFETIMEBOUND {
  return {buf(), length()};
}

inline String::operator std::string_view() const noexcept VX_LIFETIMEBOUND {
  return view();
}

}  // namespace vx

template <>
struct std::hash<vx::String> {
  [[nodiscard]] std::size_t operator()(vx::String text) const noexcept {
    return std::hash<std::string_view>{}(text.view());
  }
};
