// SPDX-License-Identifier: MIT
//
// The exact types of the public functions, checked by the compiler: a reference in place of a value
// would change the interface.

#include "core/vx_env.h"
#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <cstddef>
#include <cstdio>
#include <functional>
#include <type_traits>

namespace {

using vx::Path;
using vx::String;
using vx::StringVector;
using vx::fs::DialogType;
using vx::fs::KszCallback;
using vx::fs::KszProgress;
using vx::fs::ZipCallback;
using vx::fs::ZipProgress;

/// Compiles only for a function of exactly this type, or one that promises not to throw beside it.
template <class Function>
consteval bool is(Function /*function*/) {
  return true;
}

// ---- Strings and lists --------------------------------------------------------------------------

static_assert(is<String& (String::*)(const char*)&>(&String::operator=));
static_assert(is<String& (String::*)(const char*)>(&String::operator<<));
static_assert(is<String& (String::*)(String)>(&String::operator<<));
static_assert(is<const char* (String::*)() const>(&String::buf));
static_assert(is<bool (String::*)() const>(&String::isEmpty));
static_assert(is<bool (String::*)(String, bool) const>(&String::startsWith));
static_assert(is<bool (String::*)(String, bool) const>(&String::endsWith));
static_assert(is<int (String::*)(String) const>(&String::compareNoCase));
static_assert(is<StringVector (String::*)(char, bool, bool) const>(&String::split));
static_assert(is<String (String::*)(char, char, bool, bool) const>(&String::replace));
static_assert(is<String (String::*)(char, bool) const>(&String::fromLast));
static_assert(is<bool (String::*)(const char*) const>(&String::operator==));
static_assert(is<bool (String::*)(String) const>(&String::operator==));
static_assert(is<String (String::*)(const char*) const>(&String::operator+));
static_assert(is<String (String::*)(String) const>(&String::operator+));

static_assert(is<void (StringVector::*)(String)>(&StringVector::push_back));
static_assert(is<String (StringVector::*)() const>(&StringVector::front));
static_assert(is<String (StringVector::*)(std::size_t) const>(&StringVector::operator[]));
static_assert(is<std::size_t (StringVector::*)() const>(&StringVector::size));
static_assert(is<bool (StringVector::*)() const>(&StringVector::empty));
static_assert(is<String (StringVector::*)(String) const>(&StringVector::join));

// ---- Paths --------------------------------------------------------------------------------------

static_assert(is<String (Path::*)() const>(&Path::normalized));
static_assert(is<String (Path::*)() const>(&Path::canonical));
static_assert(is<StringVector (Path::*)() const>(&Path::components));
static_assert(is<String (Path::*)() const>(&Path::dir));
static_assert(is<String (Path::*)(bool) const>(&Path::file));
static_assert(is<String (Path::*)(bool) const>(&Path::ext));
static_assert(is<bool (Path::*)() const>(&Path::isDir));
static_assert(is<bool (Path::*)() const>(&Path::isFile));
static_assert(is<bool (Path::*)() const>(&Path::isRel));
static_assert(is<bool (Path::*)() const>(&Path::exists));
static_assert(is<String (*)(String)>(&Path::normalize));
static_assert(is<String (*)(String, bool)>(&Path::dir));
static_assert(is<String (*)(String, bool)>(&Path::ext));
static_assert(is<bool (*)(String, bool)>(&Path::isDir));
static_assert(is<bool (*)(String, bool)>(&Path::isFile));
static_assert(is<String (*)(String, String)>(&Path::changeExt));
static_assert(is<String (*)(StringVector)>(&Path::join));
static_assert(is<String (*)(String, char*)>(&Path::join));
static_assert(is<String (*)(String, const char*)>(&Path::join));
static_assert(is<String (*)(const char*, String)>(&Path::join));
static_assert(is<String (*)(String, String)>(&Path::join));

// ---- The error state, the environment and the log -----------------------------------------------

static_assert(is<void (*)(long long, String, String)>(&vx::os::setCurrentError));
static_assert(is<void (*)(String)>(&vx::os::captureCurrentError));
static_assert(is<void (*)()>(&vx::os::clearCurrentError));
static_assert(is<long long (*)()>(&vx::os::currentErrorCode));
static_assert(is<String (*)()>(&vx::os::currentErrorContext));
static_assert(is<String (*)()>(&vx::os::currentErrorMessage));
static_assert(is<String (*)(String)>(&vx::os::getEnv));
static_assert(is<void (*)(const char*, ...)>(&vx::logError));
static_assert(is<void (*)(const char*, ...)>(&vx::logWarning));
static_assert(is<vx::LogSink (*)(vx::LogSink)>(&vx::setLogSink));
static_assert(is<vx::LogSink (*)()>(&vx::standardErrorSink));
static_assert(is<const char* (*)(vx::LogLevel) noexcept>(&vx::levelName));

// ---- Files and directories ----------------------------------------------------------------------

static_assert(is<FILE* (*)(String, String)>(&vx::fs::Fopen));
static_assert(is<FILE* (*)(String, String, FILE*)>(&vx::fs::Freopen));
static_assert(is<int (*)(FILE*)>(&vx::fs::Fclose));
static_assert(is<bool (*)(String)>(&vx::fs::Fremove));
static_assert(is<int (*)(FILE*, long long, int)>(&vx::fs::Fseek));
static_assert(is<long long (*)(FILE*)>(&vx::fs::Ftell));
static_assert(is<std::size_t (*)(void*, std::size_t, std::size_t, FILE*)>(&vx::fs::Fread));
static_assert(is<std::size_t (*)(const void*, std::size_t, std::size_t, FILE*)>(&vx::fs::Fwrite));
static_assert(is<int (*)(FILE*)>(&vx::fs::Fflush));
static_assert(is<int (*)(String, String)>(&vx::fs::Frename));
static_assert(is<bool (*)(String)>(&vx::fs::isDir));
static_assert(is<bool (*)(String)>(&vx::fs::isFile));
static_assert(is<bool (*)(String)>(&vx::fs::exists));
static_assert(is<bool (*)(String)>(&vx::fs::mkDir));
static_assert(is<bool (*)(String)>(&vx::fs::rmDir));
static_assert(is<bool (*)(String)>(&vx::fs::rmFile));
static_assert(is<bool (*)(String, String)>(&vx::fs::copyFile));
static_assert(is<bool (*)(String, String)>(&vx::fs::moveFile));
static_assert(is<StringVector (*)(String)>(&vx::fs::listDirs));
static_assert(is<StringVector (*)(String, StringVector)>(&vx::fs::listFiles));

// ---- Places and references ----------------------------------------------------------------------

static_assert(is<String (*)()>(&vx::fs::exePath));
static_assert(is<String (*)()>(&vx::fs::exeDir));
static_assert(is<String (*)()>(&vx::fs::appDir));
static_assert(is<String (*)()>(&vx::fs::resDir));
static_assert(is<bool (*)(String&)>(&vx::fs::getCurrentDir));
static_assert(is<bool (*)(String&)>(&vx::fs::getHomeDir));
static_assert(is<bool (*)(String&)>(&vx::fs::getTempDir));
static_assert(is<String (*)()>(&vx::fs::currentDir));
static_assert(is<String (*)()>(&vx::fs::homeDir));
static_assert(is<String (*)()>(&vx::fs::tempDir));
static_assert(is<bool (*)(String&, bool)>(&vx::fs::getKavraUserDir));
static_assert(is<bool (*)(String&, bool)>(&vx::fs::getKavraConfigDir));
static_assert(is<bool (*)(String&, bool)>(&vx::fs::getKavraOutputDir));
static_assert(is<bool (*)(String&, bool)>(&vx::fs::getKavraPreviewDir));
static_assert(is<String (*)(bool)>(&vx::fs::kavraUserDir));
static_assert(is<String (*)(bool)>(&vx::fs::kavraConfigDir));
static_assert(is<String (*)(bool)>(&vx::fs::kavraOutputDir));
static_assert(is<String (*)(bool)>(&vx::fs::kavraPreviewDir));
static_assert(is<String (*)(bool)>(&vx::fs::kavraNodeHelpPath));
static_assert(is<String (*)(String, StringVector, StringVector)>(&vx::fs::resolvePath));

// ---- Archives -----------------------------------------------------------------------------------

static_assert(std::is_same_v<ZipCallback, std::function<void(ZipProgress)>>);
static_assert(std::is_same_v<KszCallback, std::function<void(KszProgress)>>);
static_assert(is<StringVector (*)(String, String, ZipCallback)>(&vx::fs::readZip));
static_assert(is<bool (*)(String, StringVector, ZipCallback)>(&vx::fs::writeZip));
static_assert(is<bool (*)(String, KszCallback)>(&vx::fs::readKsz));
static_assert(is<bool (*)(String, StringVector, KszCallback)>(&vx::fs::writeKsz));

/// Whether the record is made of a name and a fraction, in this order, and of nothing else.
template <class Progress>
concept NameThenFraction = requires(String name) {
  Progress{name, 0.5};
}
&&!requires(String name) {
  Progress{name, 0.5, 0};
};

static_assert(NameThenFraction<ZipProgress>);
static_assert(NameThenFraction<KszProgress>);

// ---- Dialogs ------------------------------------------------------------------------------------

static_assert(is<String (*)(String, String, String, StringVector)>(&vx::fs::browseFile));
static_assert(is<StringVector (*)(String, String, String, StringVector)>(&vx::fs::browseFiles));
static_assert(is<String (*)(String, String)>(&vx::fs::browseDir));
static_assert(is<String (*)(String, String, String, StringVector)>(&vx::fs::saveFile));
static_assert(static_cast<int>(DialogType::Open) == 0);
static_assert(static_cast<int>(DialogType::Save) == 1);
static_assert(static_cast<int>(DialogType::Folder) == 2);

}  // namespace
