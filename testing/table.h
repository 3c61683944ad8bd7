// Tables of cases: what goes in, and what must come out.
#ifndef KUPDATE_TESTING_TABLE_H_
#define KUPDATE_TESTING_TABLE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// One case. Without a label its input names it.
template <class Input, class Want>
struct Row {
  Row(Input in, Want out) : Row(testing::PrintToString(in), in, out) {}
  Row(std::string name, Input in, Want out)
      : label(std::move(name)), input(std::move(in)), want(std::move(out)) {}

  std::string label;
  Input input;
  Want want;
};

template <class Input, class Want>
class Table {
 public:
  Table(std::initializer_list<Row<Input, Want>> rows) : rows_(rows) {}

  /// Compares what `answer` returns for each input with what is wanted.
  void Expect(auto answer) const {
    for (const auto& row : rows_) {
      SCOPED_TRACE(row.label);
      EXPECT_EQ(answer(row.input), row.want);
    }
  }

 private:
  std::vector<Row<Input, Want>> rows_;
};

/// Several inputs that all give one result. They name themselves.
template <class Input, class Want, class Answer>
void ExpectAll(const Want& want, std::initializer_list<Input> inputs, Answer answer) {
  for (const Input& input : inputs) {
    EXPECT_EQ(answer(input), want) << testing::PrintToString(input);
  }
}

#endif  // KUPDATE_TESTING_TABLE_H_
