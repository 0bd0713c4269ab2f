#pragma once

#include <TMatrixDSym.h>

#include "func/Lutz.h"

namespace kelvo {

/// Runs the steps of a fit one by one.
struct LutzStages {
  /// Lever arms and design matrix.
  static void Prepare(Lutz& fit) {
    fit.CalcZeta();
    fit.CalcD();
  }

  static void FillA(Lutz& fit) { fit.FillA(); }

  static bool Invert(Lutz& fit, const TMatrixDSym& a) {
    fit.fAinv = a;
    return fit.InvertA();
  }

  /// Parameters and fitted values.
  static void Solve(Lutz& fit) {
    fit.Calcq();
    fit.Calcx();
  }

  /// Returns the normal matrix after FillA, its inverse after a fit.
  static const TMatrixDSym& A(const Lutz& fit) { return fit.fAinv; }
};

} // namespace kelvo
