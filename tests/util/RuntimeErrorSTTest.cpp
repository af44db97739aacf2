#include <facetbox/util/RuntimeErrorST.h>

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/stacktrace.hpp>

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(RuntimeErrorST, callStackStartsAtThePlaceThatMadeTheError) {
  const std::vector<std::string> here = linesOf(to_string(boost::stacktrace::stacktrace()));
  const util::RuntimeErrorST error("lost");
  const std::vector<std::string> lines = linesOf(error.stacktrace());

  ASSERT_GT(lines.size(), 1u);
  ASSERT_EQ(lines.size(), here.size());
  // The first frame is this function in both, at another line of it; the callers are the same.
  for (std::size_t i = 1; i < lines.size(); ++i) EXPECT_EQ(lines[i], here[i]);
}

}  // namespace
