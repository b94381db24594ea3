// Work at an instruction set of the test's choice.
#pragma once

#include "platform/vector/VectorKernels.h"

namespace velorin::test {

/// While it lives, the vector layer works at the level; then it goes back to what it did before.
class AtLevel {
 public:
  explicit AtLevel(vector::Level level) : _before(&vector::activeKernels()) {
    vector::setLevel(level);
  }
  ~AtLevel() {
    for (const vector::Level level : vector::availableLevels()) {
      if (&vector::kernels(level) == _before) vector::setLevel(level);
    }
  }
  AtLevel(const AtLevel&) = delete;
  AtLevel& operator=(const AtLevel&) = delete;

 private:
  const vector::Kernels* _before;
};

}  // namespace velorin::test
