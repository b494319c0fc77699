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

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <new>
#include <string_view>

namespace vx {

class StringVector;

/// A text: see the head of this file.
class String final : public RefersTo<IRefCounted> {
 public:
  /// The empty string.
  String() noexcept = default;

  /// The first `length` bytes of `text`; with length 0 the text up to its terminating NUL. A null
  /// pointer gives the empty string.
  String(const char* text, std::size_t length = 0);

  /// The bytes of `text`, NUL included.
  explicit String(std::string_view text);

  /// Shares the bytes of `other`.
  String(const String& other) noexcept : RefersTo(other.retained<RefCounted>()) {}
  /// Takes the bytes of `other` over and leaves it empty.
  String(String&& other) noexcept = default;
  /// Shares the bytes of `other` in place of its own.
  String& operator=(const String& other) noexcept { return *this = String(other); }
  /// Takes the bytes of `other` over in place of its own.
  String& operator=(String&& other) noexcept = default;
  ~String() override { release<RefCounted>(); }

  /// Replaces the content by the NUL-terminated `text`, which may lie in this string's own buffer.
  /// A null pointer makes the string empty.
  String& operator=(const char* text);

  /// Appends in place; the text may lie in this string's own buffer. A null pointer adds nothing.
  String& operator<<(const char* text);

  /// Appends in place.
  String& operator<<(String text);

  /// The NUL-terminated bytes, never null; valid while this string lives and is not changed.
  [[nodiscard]] const char* buf() const noexcept;

  /// The number of bytes.
  [[nodiscard]] std::size_t length() const noexcept;

  /// The bytes, valid as long as `buf()`.
  [[nodiscard]] std::string_view view() const noexcept;

  /// Whether there are no bytes.
  [[nodiscard]] bool isEmpty() const noexcept { return length() == 0; }

  /// Whether the text begins with `prefix` (the empty one always).
  [[nodiscard]] bool startsWith(String prefix, bool ignoreCase) const noexcept;

  /// Whether the text ends with `suffix` (the empty one always).
  [[nodiscard]] bool endsWith(String suffix, bool ignoreCase) const noexcept;

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

  /// Byte order, unsigned.
  [[nodiscard]] bool operator<(String other) const noexcept;

  /// Concatenation into a new string. A null pointer adds nothing.
  [[nodiscard]] String operator+(const char* text) const;

  /// Concatenation into a new string.
  [[nodiscard]] String operator+(String text) const;

  /// Writes the bytes, formatted as the stream formats text.
  friend std::ostream& operator<<(std::ostream& stream, String text);

 private:
  friend class StringBuilder;

  /// The head of a block; the bytes and their terminating NUL follow it.
  struct Text;

  /// Takes over the one reference to `text`, which may be null.
  explicit String(Text* text) noexcept;

  [[nodiscard]] static std::string_view viewOf(const char* text) noexcept {
    return text == nullptr ? std::string_view() : std::string_view(text);
  }

  /// A block with the bytes of `text`, null for none.
  [[nodiscard]] static Text* copied(std::string_view text);

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

inline String::String(Text* text) noexcept : RefersTo(text) {}

inline String::String(const char* text, std::size_t length)
    : String(length == 0 || text == nullptr ? viewOf(text) : std::string_view(text, length)) {}

inline const char* String::buf() const noexcept {
  Text* const held = text();
  return held == nullptr ? "" : held->bytes();
}

inline std::size_t String::length() const noexcept {
  const Text* const held = text();
  return held == nullptr ? 0 : held->length;
}

inline std::string_view String::view() const noexcept {
  return {buf(), length()};
}

}  // namespace vx

template <>
struct std::hash<vx::String> {
  [[nodiscard]] std::size_t operator()(vx::String text) const noexcept {
    return std::hash<std::string_view>{}(text.view());
  }
};
