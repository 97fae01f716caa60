// SPDX-License-Identifier: MIT
// The five routines on Eigen. Square matrices are scaled by powers of two, which rounds nothing, and factored with
// partial pivoting (symmetric ones by Cholesky where they are positive definite); least squares use Householder
// reflections with column pivoting. Matrices of up to kSmall rows live on the stack.
#include "libmath/libmath.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <Eigen/LU>
#include <Eigen/QR>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace
{

using Eigen::Dynamic;

constexpr int kSmall = 8;

// Max is the largest size, or Dynamic for a matrix on the heap.
template <int Max>
using Matrix = Eigen::Matrix<double, Dynamic, Dynamic, Eigen::ColMajor, Max, Max>;
template <int Max>
using Vector = Eigen::Matrix<double, Dynamic, 1, Eigen::ColMajor, Max, 1>;
using RowMajor = Eigen::Matrix<double, Dynamic, Dynamic, Eigen::RowMajor>;
using ConstMatrixMap = Eigen::Map<const RowMajor>;
using MatrixMap = Eigen::Map<RowMajor>;
using ConstVectorMap = Eigen::Map<const Eigen::VectorXd>;
using VectorMap = Eigen::Map<Eigen::VectorXd>;

// Eigen cuts large products into blocks that fit the caches it finds, and the cuts decide the order of sums. Sizes
// that do not depend on the machine make the results so.
[[maybe_unused]] const bool caches_are_fixed = (Eigen::setCpuCacheSizes(32 << 10, 256 << 10, 2 << 20), true);

// The power of two that brings a largest magnitude to 0.5 up to 1.
double scale_for(double largest)
{
    constexpr int kLimit = 1000; // the power itself stays a normal number
    int exponent = 0;
    (void)std::frexp(largest, &exponent);
    return std::ldexp(1.0, -std::clamp(exponent, -kLimit, kLimit));
}

template <int Max>
Vector<Max> scale_columns(Matrix<Max>& m)
{
    Vector<Max> scale(m.cols());
    for (Eigen::Index j = 0; j < m.cols(); ++j) {
        scale[j] = scale_for(m.col(j).cwiseAbs().maxCoeff());
        m.col(j) *= scale[j];
    }
    return scale;
}

template <int Max>
Vector<Max> scale_rows(Matrix<Max>& m)
{
    Vector<Max> scale(m.rows());
    for (Eigen::Index i = 0; i < m.rows(); ++i) {
        scale[i] = scale_for(m.row(i).cwiseAbs().maxCoeff());
        m.row(i) *= scale[i];
    }
    return scale;
}

// Whether the diagonal of a triangular factor tells the matrix from a singular one. Not-a-number does not.
template <class Diagonal>
bool is_regular(const Diagonal& diagonal)
{
    const double largest = diagonal.cwiseAbs().maxCoeff();
    const double smallest = diagonal.cwiseAbs().minCoeff();
    return smallest > std::numeric_limits<double>::epsilon() * largest; // not so for an infinite one either
}

template <int Max>
bool invert_general(Eigen::Ref<RowMajor> a)
{
    Matrix<Max> m = a;
    const Vector<Max> columns = scale_columns<Max>(m);
    const Vector<Max> rows = scale_rows<Max>(m);
    const Eigen::PartialPivLU<Matrix<Max>> factors(m);
    if (!is_regular(factors.matrixLU().diagonal()))
        return false;
    m = factors.inverse();
    a = columns.asDiagonal() * m * rows.asDiagonal();
    return true;
}

// False where the matrix is not positive definite, or nearly not.
template <int Max>
bool invert_definite(Eigen::Ref<RowMajor> a)
{
    if (!(a.diagonal().minCoeff() > 0))
        return false;
    const Vector<Max> scale = a.diagonal().unaryExpr([](double d) { return scale_for(std::sqrt(d)); });
    Matrix<Max> m = scale.asDiagonal() * a * scale.asDiagonal();
    const Eigen::LLT<Matrix<Max>, Eigen::Lower> factors(m);
    // The factor's diagonal holds the roots of the pivots.
    if (factors.info() != Eigen::Success || !is_regular(factors.matrixLLT().diagonal().cwiseAbs2().eval()))
        return false;
    m.setIdentity();
    factors.solveInPlace(m);
    a = scale.asDiagonal() * m * scale.asDiagonal();
    return true;
}

void mirror_lower_triangle(Eigen::Ref<RowMajor> a)
{
    for (Eigen::Index i = 0; i < a.rows(); ++i)
        for (Eigen::Index j = i + 1; j < a.cols(); ++j)
            a(i, j) = a(j, i);
}

template <int Max>
bool invert_symmetric(Eigen::Ref<RowMajor> a)
{
    mirror_lower_triangle(a);
    if (!invert_definite<Max>(a) && !invert_general<Max>(a))
        return false;
    mirror_lower_triangle(a);
    return true;
}

template <int Max>
bool solve_square(const ConstMatrixMap& a, const ConstVectorMap& b, VectorMap x)
{
    Matrix<Max> m = a;
    const Vector<Max> columns = scale_columns<Max>(m);
    const Vector<Max> rows = scale_rows<Max>(m);
    const Eigen::PartialPivLU<Matrix<Max>> factors(m);
    if (!is_regular(factors.matrixLU().diagonal()))
        return false;
    const Vector<Max> scaled = rows.cwiseProduct(b);
    x = columns.cwiseProduct(Vector<Max>(factors.solve(scaled)));
    return true;
}

bool solve_least_squares(const ConstMatrixMap& a, const ConstVectorMap& b, VectorMap x)
{
    Matrix<Dynamic> m = a;
    const Vector<Dynamic> columns = scale_columns<Dynamic>(m); // rows keep their weight
    const Eigen::ColPivHouseholderQR<Matrix<Dynamic>> factors(m);
    if (!is_regular(factors.matrixQR().diagonal()))
        return false;
    x = columns.cwiseProduct(Vector<Dynamic>(factors.solve(b)));
    return true;
}

bool solve(const ConstMatrixMap& a, const ConstVectorMap& b, VectorMap x)
{
    if (a.rows() < a.cols())
        return false;
    if (!a.allFinite() || !b.allFinite()) {
        x.setConstant(std::numeric_limits<double>::quiet_NaN());
        return false;
    }
    if (a.rows() > a.cols())
        return solve_least_squares(a, b, x);
    return a.rows() <= kSmall ? solve_square<kSmall>(a, b, x) : solve_square<Dynamic>(a, b, x);
}

// Eigen reports an exhausted heap with an exception, which must not cross the interface.
template <class Body>
int32_t result_of(const Body& body) noexcept
{
    try {
        return body() ? 1 : 0;
    } catch (...) {
        return -1;
    }
}

// normal += (weight * row) * row', rhs += (weight * value) * row'
void add_observation(const double* row, int32_t n, double value, double* normal, double* rhs, double weight)
{
    using Line = Eigen::RowVectorXd;
    const Eigen::Map<const Line> design(row, n);
    for (int32_t i = 0; i < n; ++i)
        Eigen::Map<Line>(normal + static_cast<std::ptrdiff_t>(i) * n, n) += (weight * row[i]) * design;
    Eigen::Map<Line>(rhs, n) += (weight * value) * design;
}

// The same for the five unknowns of a conic, without a loop: of an ellipse fit's time most passes here.
template <std::size_t... I>
void add_conic_observation(const double* row, double value, double* normal, double* rhs, double weight,
                           std::index_sequence<I...>)
{
    constexpr int kUnknowns = sizeof...(I);
    using Line = Eigen::Matrix<double, 1, kUnknowns>;
    using LineMap = Eigen::Map<Line>;
    const Line design = Eigen::Map<const Line>(row); // a copy, which no store to the sums can change
    ((LineMap(normal + kUnknowns * I) += (weight * design[I]) * design), ...);
    LineMap(rhs) += (weight * value) * design;
}

} // namespace

extern "C" {

LIBMATH_API int32_t matrix_invert(double* a, int32_t n, int32_t*, int32_t*)
{
    if (n <= 0)
        return 1;
    return result_of([=] {
        MatrixMap m(a, n, n);
        return m.allFinite() && (n <= kSmall ? invert_general<kSmall>(m) : invert_general<Dynamic>(m));
    });
}

LIBMATH_API int32_t matrix_symmetric_invert(double* a, int32_t n)
{
    if (n <= 0)
        return 1;
    return result_of([=] {
        RowMajor m = MatrixMap(a, n, n).triangularView<Eigen::Lower>();
        if (!m.allFinite() || !(n <= kSmall ? invert_symmetric<kSmall>(m) : invert_symmetric<Dynamic>(m)))
            return false;
        MatrixMap(a, n, n) = m;
        return true;
    });
}

LIBMATH_API int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner,
                                int32_t columns)
{
    if (rows <= 0 || columns <= 0)
        return 1;
    MatrixMap product(c, rows, columns);
    if (inner <= 0) {
        product.setZero();
        return 1;
    }
    const ConstMatrixMap left(a, rows, inner);
    const ConstMatrixMap right(b, inner, columns);
    for (int32_t i = 0; i < rows; ++i) {
        product.row(i) = left(i, 0) * right.row(0);
        for (int32_t k = 1; k < inner; ++k)
            product.row(i) += left(i, k) * right.row(k);
    }
    return 1;
}

LIBMATH_API int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight)
{
    if (n <= 0)
        return 1;
    if (n == 5)
        add_conic_observation(row, value, normal, rhs, weight, std::make_index_sequence<5>());
    else
        add_observation(row, n, value, normal, rhs, weight);
    return 1;
}

LIBMATH_API int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns, double*)
{
    if (columns <= 0)
        return 1;
    VectorMap x(solution, columns);
    x.setZero();
    if (rows <= 0)
        return 0;
    return result_of([&] { return solve(ConstMatrixMap(normal, rows, columns), ConstVectorMap(rhs, rows), x); });
}

} // extern "C"
