#include <tools/Printing.h>

#include <cmath>
#include <cstdio>

#include <fmt/format.h>

namespace tool {

using nlohmann::ordered_json;

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

std::string dumped(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string shown(double value) { return fmt::format("{:.6g}", value + 0.0); }
std::string shown(const Vector& v) { return fmt::format("{} {} {}", shown(v.x), shown(v.y), shown(v.z)); }
ordered_json inFull(double value) { return value + 0.0; }
ordered_json inFull(const Vector& v) { return {inFull(v.x), inFull(v.y), inFull(v.z)}; }

Vector snapped(const Vector& point, double scale) {
  const auto snap = [scale](double value) { return std::fabs(value * scale) < 1e-6 ? 0 : value; };
  return {snap(point.x), snap(point.y), snap(point.z)};
}

}  // namespace tool
