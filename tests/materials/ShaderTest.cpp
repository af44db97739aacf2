#include <facetbox/materials/Shader.h>

#include <array>
#include <barrier>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <facetbox/materials/Texture.h>

namespace {

using ::testing::ThrowsMessage;
using util::MaterialPair;
using util::Shader;
using util::ShaderHandle;
using util::ShaderType;

std::shared_ptr<const util::Texture> textureOf(std::u16string uri) {
  return std::make_shared<const util::SimpleTexture>(std::move(uri));
}

Shader texturedShader(std::u16string uri) {
  return Shader("surface").declare("texture", ShaderType::texture).set("texture", textureOf(std::move(uri)));
}

TEST(Shader, refusesUnknownKeysAndMismatchesWithTheirTexts) {
  const Shader shader = Shader("surface").declare("texture", ShaderType::texture).declare("b", ShaderType::floats, 3);
  const auto unknown = ThrowsMessage<std::invalid_argument>("unknown shader key: c");
  EXPECT_THAT([&] { shader.find("c"); }, unknown);
  EXPECT_THAT([&] { shader.set("c", "text"); }, unknown);
  const auto mismatch = ThrowsMessage<std::runtime_error>("tried to add an existing key with non-matching type/size");
  EXPECT_THAT([&] { shader.declare("b", ShaderType::floats, 4); }, mismatch);
  EXPECT_THAT([&] { shader.declare("b", ShaderType::doubles, 3); }, mismatch);
  EXPECT_THROW(shader.set("b", std::vector<float>{1, 2}), std::invalid_argument);
  EXPECT_THROW(shader.set("b", std::vector<double>{1, 2, 3}), std::invalid_argument);
  EXPECT_THROW(shader.set("texture", std::shared_ptr<const util::Texture>()), std::invalid_argument);
}

TEST(Shader, contentDecidesEqualityAndHash) {
  const auto number = [](double value) {
    return Shader("s").declare("n", ShaderType::doubles).set("n", std::vector<double>{value});
  };
  const Shader ab = Shader("s").declare("a", ShaderType::integers).declare("b", ShaderType::string);
  const Shader ba = Shader("s").declare("b", ShaderType::string).declare("a", ShaderType::integers);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [x, y] :
       {std::pair(ab, ba), std::pair(number(nan), number(nan)),
        std::pair(texturedShader(u"brick"), texturedShader(u"brick")), std::pair(ab.set("b", "x"), ba.set("b", "x"))}) {
    EXPECT_EQ(x, y);
    EXPECT_EQ(hash_value(x), hash_value(y));
  }

  const Shader none = Shader("s").declare("a", ShaderType::integers, 0).declare("b", ShaderType::string);
  const std::vector<Shader> different = {Shader("s"),
                                         Shader("t"),
                                         ab,
                                         ab.set("a", std::vector<std::int64_t>{1}),
                                         ab.set("b", ""),
                                         none,
                                         texturedShader(u"brick"),
                                         number(0.0),
                                         number(-0.0),
                                         number(1),
                                         texturedShader(u"slate")};
  for (std::size_t i = 0; i < different.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) EXPECT_FALSE(different[i] == different[j]) << i << " and " << j;
}

TEST(ShaderHandle, equalContentsShareOneRecordUntilTheLastHandleGoes) {
  const auto texture = std::make_shared<const util::SimpleTexture>(u"shared");
  const std::weak_ptr<const util::Texture> watched = texture;
  const auto internShared = [&] { return intern(texturedShader(u"other").set("texture", texture)); };
  EXPECT_EQ(ShaderHandle()->name(), "EmptyShader");
  EXPECT_EQ(ShaderHandle(), intern(Shader("EmptyShader")));
  const ShaderHandle first = intern(texturedShader(u"shared"));
  {
    const ShaderHandle second = internShared();
    EXPECT_EQ(first, second);
    EXPECT_EQ(&*first, &*second);
    EXPECT_NE(first, intern(texturedShader(u"unshared")));
  }
  EXPECT_EQ(watched.use_count(), 1) << "the store keeps the texture that came first";

  ShaderHandle later = first;
  ShaderHandle lone = intern(Shader("lone").declare("texture", ShaderType::texture).set("texture", texture));
  EXPECT_EQ(watched.use_count(), 2);
  lone = std::move(later);
  EXPECT_EQ(watched.use_count(), 1) << "the last handle took its record along";
  EXPECT_EQ(lone, first);
}

TEST(ShaderHandle, threadsInternCompareAndReleaseTheSameContents) {
  constexpr std::size_t kThreads = 4;
  constexpr int kRounds = 500;
  const std::array<std::u16string, 4> names = {u"a", u"b", u"c", u"d"};
  // The first two stay alive throughout, the others come and go.
  std::array<std::array<ShaderHandle, 2>, kThreads> kept;
  std::array<int, kThreads> mistakes{};
  std::barrier start(std::ptrdiff_t{kThreads});
  const auto work = [&](std::size_t thread) {
    start.arrive_and_wait();
    for (std::size_t i = 0; i < kept[thread].size(); ++i) kept[thread][i] = intern(texturedShader(names[i]));
    for (int round = 0; round < kRounds; ++round) {
      for (std::size_t i = 0; i < names.size(); ++i) {
        const MaterialPair pair{intern(texturedShader(names[i])), ShaderHandle()};
        const MaterialPair copy = pair;
        const bool same = pair.first == intern(texturedShader(names[i])) && copy == pair;
        const bool sharesKept = i < kept[thread].size() ? pair.first == kept[thread][i] : pair.first != kept[thread][0];
        if (!same || !sharesKept || findTexture(copy, "texture")->uri() != names[i]) ++mistakes[thread];
      }
    }
  };
  std::vector<std::jthread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) threads.emplace_back(work, thread);
  threads.clear();
  EXPECT_THAT(mistakes, ::testing::Each(0));
  EXPECT_THAT(kept, ::testing::Each(kept[0]));
}

/// Made before the store, so that it goes after everything that goes at the end of the process.
[[gnu::init_priority(101)]] ShaderHandle gLastHandle;

TEST(ShaderHandleDeathTest, mayOutliveTheStaticObjectsOfTheLibrary) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto keepOneToTheEnd = [] {
    gLastHandle = intern(texturedShader(u"kept"));
    std::exit(0);
  };
  EXPECT_EXIT(keepOneToTheEnd(), testing::ExitedWithCode(0), "");
}

TEST(FindTexture, looksInTheSecondRecordOnlyForWhatTheFirstDeclares) {
  const ShaderHandle brick = intern(texturedShader(u"brick")), slate = intern(texturedShader(u"slate")), empty;
  const ShaderHandle unset = intern(Shader("surface").declare("texture", ShaderType::texture));
  const ShaderHandle text = intern(Shader("s").declare("texture", ShaderType::string).set("texture", "brick"));
  const std::tuple<ShaderHandle, ShaderHandle, std::u16string> cases[] = {
      {brick, empty, u"brick"}, {brick, slate, u"brick"}, {unset, slate, u"slate"}, {unset, unset, u"none"},
      {unset, empty, u"none"},  {empty, slate, u"none"},  {text, slate, u"none"}};
  for (const auto& [first, second, expected] : cases) {
    const auto texture = util::findTexture({first, second}, "texture");
    EXPECT_EQ(texture ? texture->uri() : std::u16string(u"none"), expected);
  }
}

}  // namespace
