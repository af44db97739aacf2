// Cleans every object of a model file and writes the result in the format that the second name stands for.

#include <cstdio>
#include <exception>

#include <facetbox/clean.h>
#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    facetbox::Model model = facetbox::readModel(argv[1]);
    for (const facetbox::Note& note : model.notes) std::printf("left out: %zu x %s\n", note.count, note.what.c_str());
    for (facetbox::Object& object : model.objects) {
      const facetbox::Cleaned cleaned = facetbox::clean(object.mesh, facetbox::allSteps(0.01, 20));
      std::vector<float> colors;  // of the vertices that are left
      if (!object.colors.empty())
        for (const std::uint32_t source : cleaned.vertexSources)
          colors.insert(colors.end(), &object.colors[4 * source], &object.colors[4 * source] + 4);
      std::printf("%zu faces become %zu\n", object.mesh.counts.size(), cleaned.mesh.counts.size());
      object.mesh = cleaned.mesh;
      object.colors = colors;
    }
    for (const facetbox::Note& note : facetbox::writeModel(model, argv[2]))
      std::printf("lost: %zu x %s\n", note.count, note.what.c_str());
  } catch (const std::exception& error) {
    std::printf("%s\n", error.what());  // names the file and the line
    return 1;
  }
}
