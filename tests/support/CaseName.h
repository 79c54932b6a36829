// The title of a table's row as the name of its test.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace tulo::test {

struct CaseName {
  template <typename Case>
  std::string operator()(const testing::TestParamInfo<Case>& row) const {
    return row.param.title;
  }
};

}  // namespace tulo::test
