// SPDX-License-Identifier: MIT
//
// Inputs that the benchmarks and the counts share, so that their results can be compared.

#pragma once

#include <array>
#include <random>
#include <string>
#include <vector>

namespace vx::bench {

inline constexpr const char* kLiteral = "textures/wood/grain.png ";  // 24 bytes
inline constexpr const char* kPiece = "/texture";                    // 8 bytes

/// Two strings that differ only in letter case.
struct Pair {
  const char* a;
  const char* b;
};
inline constexpr Pair kLong = {"Textures/WOOD/grain.png_", "textures/wood/GRAIN.PNG_"};
inline constexpr Pair kShort = {"PNG", "png"};

inline constexpr const char* kMixed =
    "/projects//kitchen/./scenes/../textures/wood//../wood/grain.png/";
inline constexpr const char* kNormal = "/projects/kitchen/scenes/textures/wood/grain.diffuse.png";
inline constexpr const char* kBase = "/projects/kitchen/textures";
inline constexpr const char* kName = "grain.png";

/// The extensions to try for a reference.
inline constexpr std::array kImageExtensions = {"png", "jpg", "tif", "exr", "hdr", "tga"};

/// The extensions of the files in a listed directory, in turn.
inline constexpr std::array kListedExtensions = {".png", ".jpg", ".ksx", ".txt"};

inline std::vector<std::string> sixteenNames() {
  std::vector<std::string> names;
  for (int i = 0; i < 16; ++i) {
    names.push_back("/scenes/kitchen/textures/wood_" + std::to_string(10 + i) + ".png");
  }
  return names;
}

inline std::string sixteenJoined(const char* separator) {
  std::string joined;
  for (const std::string& name : sixteenNames()) {
    joined += joined.empty() ? name : separator + name;
  }
  return joined;
}

/// Returns a path of ten levels, `top` included.
inline std::string tenLevels(const std::string& top) {
  std::string path = top;
  for (int i = 0; i < 9; ++i) {
    path += "/level" + std::to_string(i);
  }
  return path;
}

/// Returns words of a scene file in random order.
inline std::string text(std::mt19937& random, std::size_t size) {
  static constexpr std::array kWords = {"node",  "wood",  "diffuse", "texture", "transform",
                                        "0.125", "-1.75", "kitchen", "float3",  "/scene/geo"};
  std::string made;
  made.reserve(size + 16);
  while (made.size() < size) {
    made += kWords[random() % kWords.size()];
    made += random() % 8 == 0 ? '\n' : ' ';
    if (random() % 4 == 0) {
      made += std::to_string(random() % 100000);
    }
  }
  made.resize(size);
  return made;
}

}  // namespace vx::bench
