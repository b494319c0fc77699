// SPDX-License-Identifier: MIT
//
// String: a reference-counted string of bytes, UTF-8 by convention.
//
//   vx::String path = "/var";
//   path << "/" << "log";
//   std::fopen(path.buf(), "rb");
//
// Copies share their bytes. An operation that changes a string copies shared bytes first, so other
// strings do not change. A non-empty string uses one block of memory. The length is stored, and the
// bytes may include NUL; code that reads `buf()` as a C string sees only the bytes before the first
// NUL.
//
// Case-insensitive functions fold ASCII letters only, in every locale.
//
// The only failure is running out of memory (std::bad_alloc). Nothing accesses the file system,
// logs, or changes the current error.
//
// Thread safety: different threads may use strings that share their bytes. One string object must
// not be changed while another thread uses it.

#pragma once

#include "core/vx_ref_counted.h"

#include <compare>   // IWYU pragma: keep
#include <concepts>  // IWYU pragma: keep
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <new>
#include <string>
#include <string_view>

// Lets Clang warn about pointers into temporaries. Clang 14 considers only the last declaration
// of a function, so definitions repeat the attribute.
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

/// A reference-counted string of bytes. The rules are at the top of this file.
///
/// Operands are a `String`, a C string, or, in comparisons, a `std::string_view` or `std::string`.
/// A null pointer is the empty string. Deleted templates reject numbers, because a literal 0 would
/// convert to a null pointer (`nullptr` is accepted), and text given as a flag.
class String final : public RefersTo<IRefCounted> {
 public:
  /// Creates the empty string.
  String() noexcept = default;

  /// Copies the first `length` bytes of `text`, or, if `length` is 0, the bytes before its
  /// terminating NUL. A null pointer gives the empty string.
  String(const char* text, std::size_t length = 0);

  /// Rejects a flag in place of a length: `String("abc", true)` would copy one byte.
  template <std::same_as<bool> Flag>
  String(const char* text, Flag flag) = delete;

  template <std::integral Number>
  String(Number number) = delete;

  /// Copies the bytes of `text`, including NULs. A `std::string` converts to the view.
  explicit String(std::string_view text);

  /// Shares the bytes of `other`.
  String(const String& other) noexcept = default;
  /// Moves from `other` and leaves it empty.
  String(String&& other) noexcept = default;
  /// Shares the bytes of `other`.
  String& operator=(const String& other) & noexcept = default;
  /// Moves from `other` and leaves it empty.
  String& operator=(String&& other) & noexcept = default;
  ~String() override = default;

  /// Replaces the text with the C string `text`, which may point into `buf()`. A null pointer
  /// gives the empty string.
  ///
  /// Assignment requires an lvalue: `names[0] = "x"` would change a copy of the element.
  String& operator=(const char* text) &;

  template <std::integral Number>
  String& operator=(Number number) = delete;

  /// Appends `text`, which may point into `buf()`. A null pointer appends nothing.
  String& operator<<(const char* text);

  /// Appends `text`.
  String& operator<<(String text);

  template <std::integral Number>
  String& operator<<(Number number) = delete;

  /// Same as `<<`; requires an lvalue.
  String& operator+=(const char* text) & { return *this << text; }

  /// Same as `<<`; requires an lvalue.
  String& operator+=(String text) &;

  template <std::integral Number>
  String& operator+=(Number number) = delete;

  /// Returns the NUL-terminated bytes, never null. Valid until this string is changed or destroyed.
  [[nodiscard]] const char* buf() const noexcept VX_LIFETIMEBOUND;

  /// Returns the number of bytes.
  [[nodiscard]] std::size_t length() const noexcept;

  /// Returns the bytes. Valid until this string is changed or destroyed.
  [[nodiscard]] std::string_view view() const noexcept VX_LIFETIMEBOUND;

  /// Same as `view()`. Explicit, because `==` and `+` with standard string types would otherwise be
  /// ambiguous.
  [[nodiscard]] explicit operator std::string_view() const noexcept VX_LIFETIMEBOUND;

  /// Returns a copy of the bytes.
  [[nodiscard]] explicit operator std::string() const { return std::string(view()); }

  /// Returns whether there are no bytes.
  [[nodiscard]] bool isEmpty() const noexcept { return length() == 0; }

  /// Returns whether the text starts with `prefix`; true for the empty prefix.
  [[nodiscard]] bool startsWith(String prefix, bool ignoreCase) const noexcept;

  template <class Text>
  bool startsWith(String prefix, Text* notAFlag) const = delete;

  /// Returns whether the text ends with `suffix`; true for the empty suffix.
  [[nodiscard]] bool endsWith(String suffix, bool ignoreCase) const noexcept;

  template <class Text>
  bool endsWith(String suffix, Text* notAFlag) const = delete;

  /// Compares the bytes as unsigned values, with A-Z folded to a-z. Returns a negative number, 0 or
  /// a positive number if this text is less than, equal to or greater than `other`.
  [[nodiscard]] int compareNoCase(String other) const noexcept;

  /// Returns the pieces between the separators, in order.
  ///
  ///   "a|b||c"   ('|', false, false) => "a", "b", "", "c"
  ///   "a|b||c"   ('|', true,  false) => "a", "b", "c"
  ///   " a | |b " ('|', true,  true)  => "a", "b"
  ///   ""         ('|', false, false) => ""
  ///   ""         ('|', true,  false) => nothing
  ///
  /// @param skipEmpty leaves out empty pieces, after trimming if `trim` is true.
  /// @param trim removes ASCII white space from both ends of each piece.
  [[nodiscard]] StringVector split(char separator, bool skipEmpty, bool trim) const;

  /// Returns the text with `to` in place of `from`.
  ///
  /// @param firstOnly replaces only the first occurrence.
  /// @param ignoreCase also replaces the other case of the letter `from`.
  [[nodiscard]] String replace(char from, char to, bool firstOnly, bool ignoreCase) const;

  /// Returns the text after the last `separator`, or the whole text if there is none.
  ///
  ///   "a:b:c" (':', false) => "c"
  ///   "a:b:c" (':', true)  => ":c"
  ///   "mkDir" (':', false) => "mkDir"
  ///   "a:"    (':', false) => ""
  [[nodiscard]] String fromLast(char separator, bool keepSeparator) const;

  /// Returns whether the bytes are equal. A null pointer equals the empty string.
  [[nodiscard]] bool operator==(const char* text) const noexcept;

  /// Returns whether the bytes are equal.
  [[nodiscard]] bool operator==(String other) const noexcept;

  /// Returns whether the bytes are equal.
  [[nodiscard]] bool operator==(std::string_view text) const noexcept;

  template <std::integral Number>
  bool operator==(Number number) const = delete;

  /// Compares the bytes as unsigned values. A null pointer equals the empty string.
  [[nodiscard]] std::strong_ordering operator<=>(const char* text) const noexcept;

  /// Compares the bytes as unsigned values.
  [[nodiscard]] std::strong_ordering operator<=>(String other) const noexcept;

  /// Compares the bytes as unsigned values.
  [[nodiscard]] std::strong_ordering operator<=>(std::string_view text) const noexcept;

  template <std::integral Number>
  std::strong_ordering operator<=>(Number number) const = delete;

  /// Returns the concatenation. A null pointer is the empty string.
  [[nodiscard]] String operator+(const char* text) const;

  /// Returns the concatenation.
  [[nodiscard]] String operator+(String text) const;

  template <std::integral Number>
  String operator+(Number number) const = delete;

  /// Returns the concatenation. A null pointer is the empty string.
  [[nodiscard]] friend String operator+(const char* left, String right) {
    return joined(viewOf(left), right.view());
  }

  template <std::integral Number>
  friend String operator+(Number left, String right) = delete;

  /// Writes the bytes, formatted as the stream formats text.
  friend std::ostream& operator<<(std::ostream& stream, String text);

  /// Returns the text for {fmt}. Takes a reference, because the view must remain valid after the
  /// call.
  [[nodiscard]] friend std::string_view format_as(const String& text VX_LIFETIMEBOUND) noexcept {
    return text.view();
  }

 private:
  friend class internal::StringBuilder;

  /// The header of a block of memory. The bytes and a terminating NUL follow it.
  struct [[gnu::visibility("hidden")]] Text;

  /// Adopts the only reference to `text`.
  explicit String(Text& text) noexcept;

  [[nodiscard]] static std::string_view viewOf(const char* text) noexcept {
    return text == nullptr ? std::string_view() : std::string_view(text);
  }

  /// Returns a block with the bytes of `text`, null if there are none.
  [[nodiscard, gnu::visibility("hidden")]] static Text* copied(std::string_view text);

  [[nodiscard]] static String joined(std::string_view left, std::string_view right);

  [[nodiscard]] Text* text() const noexcept;
  void append(std::string_view added);
};

struct String::Text final : RefCounted {
  std::size_t length = 0;
  std::size_t capacity = 0;  // in bytes, without the terminating NUL

  [[nodiscard]] char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

  /// Creates an empty block with room for `capacity` bytes.
  [[nodiscard]] static Text* create(std::size_t capacity);

  /// Sets the length and terminates the text.
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
