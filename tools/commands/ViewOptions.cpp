#include <tools/commands/ViewOptions.h>

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <tools/Arguments.h>

namespace tool {

CLI::Option* addCamera(CLI::App& command, CameraOptions& options, std::array<int, 2>& size) {
  addParsed(command, "--eye", "X,Y,Z", "Where to look from (default: a point that sees the whole model)", options.mEye,
            parseVector);
  addParsed(command, "--look-at", "X,Y,Z", "What to look at (default: the center)", options.mLookAt, parseVector);
  addParsed(command, "--up", "X,Y,Z", "Up direction (default: 0,1,0)", options.mUp, parseVector);
  command.add_option("--fov", options.mFieldOfView, "Angle from the lower to the upper edge (default: 40)")
      ->type_name("DEGREES")
      ->check(CLI::Range(1.0, 150.0).description(""));
  return addParsed(command, "--size", "WxH", "Size of the picture in pixels (default: 640x480)", size, parseSize);
}

ViewArguments addView(CLI::App& command, ViewOptions& options) {
  const auto parseVolume = [](const std::string& text, const std::string& name) {
    const std::vector<double> n = parseNumbers(text, name, 24);
    std::array<Vector, 8> corners;
    for (std::size_t k = 0; k < corners.size(); ++k) corners[k] = {n[3 * k], n[3 * k + 1], n[3 * k + 2]};
    return corners;
  };
  const auto parseWindow = [](const std::string& text, const std::string& name) {
    const std::vector<double> n = parseNumbers(text, name, 4);
    return std::array{n[0], n[1], n[2], n[3]};
  };
  CLI::Option* const volume =
      addParsed(command, "--volume", "X,Y,Z,...", "Eight corners of a block or a frustum: see `facetbox select --help`",
                options.mVolume, parseVolume);
  CLI::Option* const size = addCamera(command, options.mCamera, options.mSize);
  CLI::Option* const window =
      addParsed(command, "--window", "LEFT,TOP,RIGHT,BOTTOM", "Part of the picture (default: 0,0,1,1, all of it)",
                options.mWindow, parseWindow);
  return {volume, size, window};
}

CLI::Option* addRay(CLI::App& command, const std::string& help,
                    const std::function<void(const Vector&, const Vector&)>& take) {
  const auto parse = [take](const std::string& text) {
    const std::vector<double> n = parseNumbers(text, "--ray", 6);
    take(Vector{n[0], n[1], n[2]}, Vector{n[3], n[4], n[5]});
  };
  return command.add_option_function<std::string>("--ray", parse, help)->type_name("X,Y,Z,DX,DY,DZ");
}

}  // namespace tool
