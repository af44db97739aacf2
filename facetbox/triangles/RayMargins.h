#pragma once

// How far a ray's traversal has to widen the boxes of a bounding volume hierarchy so that it passes over no triangle
// that the plain loop accepts. The derivation, and the constants that follow from it.
//
// Operations round to nearest; floats too small for their format (1e-38), which a host may have flushed to zero, vanish
// in the margins of 2^-24. Let u = 2^-53, |.| the largest absolute component, A and T the matrix's linear part and
// translation, a a bound of A's row sums of absolute values, L the largest coordinate of the mesh, D = |direction|.
//
// In the world. A corner P computed from x = A v + T is off by at most rho = 5u (a L + |T|) in each coordinate. With
// the computed edges e1, e2 (at most E) and s = origin - P0 (at most S), every triple product of the test has a
// rounding error of at most 32u times the product of its three bounds: 2 roundings in each component of the cross
// product and 3 in the sum, over 6 products. So the numerators of u and v are off by N = 32u S D E, that of t by M =
// 32u S E E, the determinant by Q = 32u E E D. The test only accepts |det| >= 1e-5. Where |det| >= tau and Q <= tau /
// 4, the true determinant is at least three quarters of the computed one. Then the true (u, v) of the ray and the
// computed triangle lies within delta = (N + Q) / 0.75 tau + 4u of accepted ones, and the true parameter t' of an
// accepted t within (M + t Q) / 0.75 tau + 4u t. Hence the point origin + t' direction lies within eta = 2 delta E +
// rho + u S + 6u E of the transformed triangle, in each coordinate.
//
// Grazing rays. Mostly tau = 1e-5 will do. Where coordinates or the direction are long, N and Q approach it, and a
// triangle that the ray just grazes may be hit far from where it is. So tau is raised to 2^13 E D (32u (S + E) + 24
// rho), where delta is small. That leaves the triangles of 1e-5 <= |det| < tau. Up to 24 rho E D (2 rho in each of two
// edges, over 6 products), det is det A (e1 x e2) . (A^-1 direction) in the mesh's own coordinates, and a box around
// the cross products of a subtree tells whether it may hold one that small. Such a subtree is entered too, unless the
// ray misses even the boxes that tau = 1e-5 asks for.
//
// All of this holds for any part of the triangles, with an E of its own: E bounds the edges of those that are asked
// about, and S need not shrink. So each subtree is tested with the longest edge in it. With the raised tau, 2 delta E
// is 64u S E / (0.75 2^13 (32u (S + E) + 24 rho)) and some u E: this part of eta, like tau, is in proportion to E. One
// large triangle widens the boxes that it is in, and no others. The error of t, (M + t Q) / 0.75 tau, grows with E too:
// the bounds of the parameter are those of the longest edge of all.
//
// In the mesh's space. With any matrix B, the map w -> B (w - T) takes that point to within b_i eta + r 3 L of the
// triangle, where b_i is B's row sum and r bounds the components of B A - 1. For B from cofactors, r <= 64u kappa with
// kappa = (largest |A_ij|)^3 / |det A|. The computed image of the origin is off by at most 6u (b_i (|o| + |T|) + L),
// that of the direction by 4u b_i D per unit of the parameter; the parameter of a point in the mesh is at most
// (|o'| + 2 h) / |d'|, with h the half size of the mesh.
//
// In floats. The mesh is scaled to coordinates of at most 1, the largest coordinate of the direction is scaled to 1,
// and the origin is moved along the ray to the point n next to the mesh's center: digits are not lost to far origins.
// Let e = 2^-24 and w the widening so far. The plane distances plane * (1 / d) - n * (1 / d) are off by less than
// 6e (1 + |n| + w), as positions, and replacing tiny direction components by 2^-22 moves the ray by 4e of the same. A
// ray that comes within w of the mesh passes the center at a distance of at most sqrt(3) (1 + w). Then n, which is off
// by at most 21u |o'| in each coordinate, has absolute coordinates that sum up to less than 3 + 10 w. Rays with larger
// ones hit nothing, unless they graze, and 5 + 13 w stands for 1 + |n| + w.
//
// The triangle filter computes the numerators and the determinant once more in floats. A point n + t d that lies within
// w of the triangle's point (alpha, beta) has the numerators alpha det and beta det up to 6 w reach, where reach bounds
// the edges; the rounding of all data and operations adds less than 160e (1 + |n| + w) reach. Where |det| is smaller
// than this sum, its sign says nothing, and the triangle stays.

namespace util {

inline constexpr double kUnit = 0x1p-53;
inline constexpr double kFloatUnit = 0x1p-24;

/// A hit lies nearer than the largest float.
inline constexpr double kFarthestHit = 3.4028234663852886e38;
/// Determinants strictly between -kSmallestDeterminant and kSmallestDeterminant mean a parallel ray.
inline constexpr double kSmallestDeterminant = 1e-5;
/// Magnitudes up to this can be multiplied four at a time without overflow.
inline constexpr double kLargestMagnitude = 1e70;
static_assert(kLargestMagnitude * kLargestMagnitude * kLargestMagnitude * kLargestMagnitude < 1e300);

/// Factors on bounds. The bounds are computed in doubles themselves and leave out products of errors: a hundredth is
/// plenty. Twice that where two such bounds are multiplied, or a float is made of the result.
inline constexpr double kMargin = 1.01, kMarginOfProduct = 1.02;
static_assert(kMarginOfProduct - 1 >= 2 * (kMargin - 1));
/// For what is only rounded to a float.
inline constexpr double kFloatMargin = 1.001;

// In the world.
inline constexpr double kCornerError = 5 * kUnit;          ///< rho, per unit of a L + |T|
inline constexpr double kTripleProductError = 32 * kUnit;  ///< per unit of the product of the three bounds
static_assert(6 * (2 + 3) * kUnit <= kTripleProductError);
/// The bound of Q as a share of tau, and what it leaves of the determinant.
inline constexpr double kErrorShare = 0.25, kSureShare = 1 - kErrorShare;
/// Roundings of an accepted u, v or t, in u; and eta's part that is in proportion to E, by 2 delta E + 6u E.
inline constexpr double kQuotientError = 4 * kUnit, kEdgeError = 2 * kQuotientError + 6 * kUnit;
/// What the parameter's bounds allow for their own rounding: four times that of t.
inline constexpr double kParameterError = 4 * kQuotientError;

// Grazing rays.
inline constexpr double kRaise = 0x1p13;
inline constexpr double kDeterminantPerCornerError = 6 * 2 * 2;
/// Boxes may be widened by this much, in unit coordinates, before grazed triangles are treated apart.
inline constexpr double kWide = 0x1p-12;

// In the mesh's space.
inline constexpr double kInverseError = 64 * kUnit;      ///< r, per unit of kappa
inline constexpr double kInverseErrorPerRow = 3;         ///< components of B A - 1 in a row
inline constexpr double kImageErrorPerInverseError = 4;  ///< of an image, per unit: a row, and what multiplies with it
inline constexpr double kImageError = 6 * kUnit;         ///< of the origin's image
inline constexpr double kDirectionImageError = 4 * kUnit;  ///< of the direction's image
/// Of positions in unit coordinates: an image, and the move to the center.
inline constexpr double kUnitPositionError = 10 * kUnit;
static_assert(kImageErrorPerInverseError > kInverseErrorPerRow && kUnitPositionError > kImageError);

// In floats.
/// A direction's components count as at least this share of the largest.
inline constexpr double kSmallestComponent = 0x1p-22;
/// Of a plane's position, per unit of 1 + |n| + w: the distances, and the replaced components.
inline constexpr double kPlaneError = (6 + 4) * kFloatUnit;
static_assert(4 * kFloatUnit >= kSmallestComponent);
/// The bound of |n| for a ray that hits, kCenterDistance + kCenterDistancePerWidth w, and so that of 1 + |n| + w.
inline constexpr double kCenterDistance = 4, kCenterDistancePerWidth = 12;
static_assert(kCenterDistance > 3 && kCenterDistancePerWidth > 10);
inline constexpr double kSize = 1 + kCenterDistance, kSizePerWidth = 1 + kCenterDistancePerWidth;
/// By which a width grows for the part of the plane error that is in proportion to it.
inline constexpr double kPlaneErrorPerWidth = kPlaneError * kSizePerWidth;

// The triangle filter: tolerances per unit of reach, and of w or 1 + |n| + w.
inline constexpr double kFilterPerWidth = 6, kFilterError = 160 * kFloatUnit;

/// Beyond this, or below its inverse, floats are not trusted with a number, nor products of them.
inline constexpr double kLargestFloat = 1e30;

}  // namespace util
