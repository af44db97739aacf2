#include <facetbox/math/Matrix4.h>

#include <cstring>

#include <facetbox/math/Lanes.h>

namespace util {

void multiply(const double a[16], const double b[16], double product[16]) {
  for (int column = 0; column < 16; column += 4)
    for (int row = 0; row < 4; row += 2) {
      const Double2 two = loadTwo(a + row) * b[column] + loadTwo(a + 4 + row) * b[column + 1] +
                          loadTwo(a + 8 + row) * b[column + 2] + loadTwo(a + 12 + row) * b[column + 3];
      std::memcpy(product + column + row, &two, sizeof two);
    }
}

}  // namespace util
