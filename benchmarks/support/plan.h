#pragma once

namespace bench {

/// How much a run measures.
struct Plan {
  bool isSmoke = false;  ///< Everything once and small: shows that it works, measures nothing.
  int repetitions = 9;   ///< Of every figure; the table shows their median and their spread.

  /// `count` samples or the like, or the few that a smoke run makes do with.
  int atMost(int count) const { return isSmoke && count > 3 ? 3 : count; }
};

}  // namespace bench
