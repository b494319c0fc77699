// SPDX-License-Identifier: MIT

#include "core/vx_string.h"

#include "core/internal/vx_string_builder.h"
#include "core/vx_string_vector.h"

#include <algorithm>
#include <cstring>
#include <ostream>  // IWYU pragma: keep

namespace vx {

using internal::StringBuilder;

namespace {

constexpr unsigned char lowered(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte | 0x20U) : byte;
}

int compareNoCase(std::string_view a, std::string_view b) noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (const int order = lowered(a[i]) - lowered(b[i])) {
      return order;
    }
  }
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

bool equal(std::string_view a, std::string_view b, bool ignoreCase) noexcept {
  return ignoreCase ? a.size() == b.size() && compareNoCase(a, b) == 0 : a == b;
}

std::string_view trimmed(std::string_view piece) noexcept {
  constexpr std::string_view kSpace = " \t\n\v\f\r";
  const std::size_t first = piece.find_first_not_of(kSpace);
  if (first == std::string_view::npos) {
    return {};
  }
  return piece.substr(first, piece.find_last_not_of(kSpace) - first + 1);
}

}  // namespace

void String::Text::destroy() noexcept {
  this->~Text();
  ::operator delete(this);
}

String::String(std::string_view text) : RefersTo(copied(text)) {}

String::Text* String::copied(std::string_view text) {
  if (text.empty()) {
    return nullptr;
  }
  Text* const copy = Text::create(text.size());
  std::memcpy(copy->bytes(), text.data(), text.size());
  copy->setLength(text.size());
  return copy;
}

String& String::operator=(const char* text) & {
  const std::string_view incoming = viewOf(text);
  if (incoming.empty()) {
    return *this = String();
  }
  Text* const held = this->text();
  if (held == nullptr || !held->isUnique() || held->capacity < incoming.size()) {
    return *this = String(incoming);
  }
  // The text may be part of the buffer that it replaces.
  std::memmove(held->bytes(), incoming.data(), incoming.size());
  held->setLength(incoming.size());
  return *this;
}

String& String::operator<<(const char* text) {
  append(viewOf(text));
  return *this;
}

String& String::operator<<(String text) {
  append(text.view());
  return *this;
}

String& String::operator+=(String text) & {
  append(text.view());
  return *this;
}

void String::append(std::string_view added) {
  if (added.empty()) {
    return;
  }
  Text* const held = text();
  const std::size_t length = this->length() + added.size();
  if (held != nullptr && held->isUnique() && held->capacity >= length) {
    // `added` may point into this buffer, but the buffer ends before the new bytes: no overlap.
    std::memcpy(held->bytes() + held->length, added.data(), added.size());
    held->setLength(length);
    return;
  }
  // Doubling the capacity makes appending take amortized constant time.
  Text* const grown = Text::create(held == nullptr ? length : 2 * length);
  std::memcpy(grown->bytes(), buf(), this->length());
  std::memcpy(grown->bytes() + this->length(), added.data(), added.size());
  grown->setLength(length);
  *this = String(*grown);
}

bool String::startsWith(String prefix, bool ignoreCase) const noexcept {
  return length() >= prefix.length() &&
         equal(view().substr(0, prefix.length()), prefix.view(), ignoreCase);
}

bool String::endsWith(String suffix, bool ignoreCase) const noexcept {
  return length() >= suffix.length() &&
         equal(view().substr(length() - suffix.length()), suffix.view(), ignoreCase);
}

int String::compareNoCase(String other) const noexcept {
  return vx::compareNoCase(view(), other.view());
}

StringVector String::split(char separator, bool skipEmpty, bool trim) const {
  StringVector pieces;
  std::string_view rest = view();
  for (;;) {
    const std::size_t end = rest.find(separator);
    std::string_view piece = rest.substr(0, end);
    if (trim) {
      piece = trimmed(piece);
    }
    if (!skipEmpty || !piece.empty()) {
      pieces.push_back(String(piece));
    }
    if (end == std::string_view::npos) {
      return pieces;
    }
    rest.remove_prefix(end + 1);
  }
}

String String::replace(char from, char to, bool firstOnly, bool ignoreCase) const {
  const auto matches = [=](char c) {
    return c == from || (ignoreCase && lowered(c) == lowered(from));
  };
  StringBuilder builder(length());
  bool done = false;
  for (const char c : view()) {
    const bool replaced = !done && matches(c);
    builder.append(replaced ? to : c);
    done = done || (replaced && firstOnly);
  }
  return builder.finish();
}

String String::fromLast(char separator, bool keepSeparator) const {
  const std::size_t last = view().rfind(separator);
  if (last == std::string_view::npos) {
    return *this;
  }
  return String(view().substr(keepSeparator ? last : last + 1));
}

bool String::operator==(const char* text) const noexcept {
  return view() == viewOf(text);
}

bool String::operator==(String other) const noexcept {
  return view() == other.view();
}

bool String::operator==(std::string_view text) const noexcept {
  return view() == text;
}

std::strong_ordering String::operator<=>(const char* text) const noexcept {
  return *this <=> viewOf(text);
}

std::strong_ordering String::operator<=>(String other) const noexcept {
  return *this <=> other.view();
}

std::strong_ordering String::operator<=>(std::string_view text) const noexcept {
  // Some standard libraries have no <=> for string views.
  return view().compare(text) <=> 0;
}

String String::joined(std::string_view left, std::string_view right) {
  StringBuilder builder(left.size() + right.size());
  builder.append(left);
  builder.append(right);
  return builder.finish();
}

String String::operator+(const char* text) const {
  return joined(view(), viewOf(text));
}

String String::operator+(String text) const {
  return joined(view(), text.view());
}

std::ostream& operator<<(std::ostream& stream, String text) {
  return stream << text.view();
}

}  // namespace vx
