#pragma once

#include <array>
#include <functional>
#include <string>

#include <CLI/App.hpp>

#include <tools/Camera.h>
#include <tools/Vector.h>
#include <tools/commands/Options.h>

namespace tool {

/// Returns the --size option.
CLI::Option* addCamera(CLI::App& command, CameraOptions& options, std::array<int, 2>& size);

/// The options of a view that do not belong to its camera.
struct ViewArguments {
  CLI::Option *mVolume, *mSize, *mWindow;
};
ViewArguments addView(CLI::App& command, ViewOptions& options);

/// Adds --ray; `take` gets its origin and its direction.
CLI::Option* addRay(CLI::App& command, const std::string& help,
                    const std::function<void(const Vector&, const Vector&)>& take);

}  // namespace tool
