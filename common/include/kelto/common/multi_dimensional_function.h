// Base of scalar functions of several variables with their gradient. The spectral correction
// derives its objective from it, so that an optimiser can work on any such function.
// Thread-safety: no lock; an object belongs to the one thread that evaluates it.
#pragma once

#include <vector>

#include <kelto/common/export.h>

namespace kelto::common {

class KELTO_COMMON_EXPORT MultiDimensionalFunction {
 public:
  explicit MultiDimensionalFunction(const unsigned long& variable_count)
      : dimension(variable_count) {}
  virtual ~MultiDimensionalFunction();

  // The function at x, which has dimension elements.
  virtual void Value(double& value, const std::vector<double>& x) const = 0;
  // The gradient at x, dimension elements.
  virtual void Gradient(std::vector<double>& gradient, const std::vector<double>& x) const = 0;

  // The number of variables, fixed at construction.
  const unsigned long dimension;
};

}  // namespace kelto::common
