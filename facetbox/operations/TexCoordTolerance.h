#pragma once

namespace util {

/// Texture coordinates agree where they are nearer than this, a distance in texture space.
inline constexpr double kTexCoordTolerance = 0.001;

}  // namespace util
