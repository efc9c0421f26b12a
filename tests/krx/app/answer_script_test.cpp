// The answer script: every kind of answer, bad lines, and formatting answers back.
#include <gtest/gtest.h>

#include "runtime/interaction.h"

namespace KRX::rt {
namespace {

TEST(AnswerScript, EveryAnswerKindParsesInOrder) {
  const AnswerScript script = ParseAnswers(
      "# answers for a tagging session\n"
      "ok\n"
      "  CANCEL  \r\n"
      "\n"
      "yes\n"
      "no\n"
      "button 6\n"
      "button -1\n"
      "pick Hero.hips\n"
      "pick2   Hero.left hand  \n"
      "file /tmp/my files/a.tagt\n"
      "progress-cancel 12\n");
  const std::vector<Answer> expected = {
      {AnswerKind::Ok, 0, CString()},
      {AnswerKind::Cancel, 0, CString()},
      {AnswerKind::Yes, 0, CString()},
      {AnswerKind::No, 0, CString()},
      {AnswerKind::Button, 6, CString()},
      {AnswerKind::Button, -1, CString()},
      {AnswerKind::Pick, 1, CString("Hero.hips")},
      {AnswerKind::Pick, 2, CString("Hero.left hand")},
      {AnswerKind::File, 0, CString("/tmp/my files/a.tagt")},
  };
  EXPECT_TRUE(script.errors.empty()) << script.errors.front();
  EXPECT_EQ(script.answers, expected);
  ASSERT_TRUE(script.cancel_progress_at.has_value());
  EXPECT_EQ(*script.cancel_progress_at, 12);
  {  // Formatted back, every answer reads back unchanged (a path with a backslash too).
    std::vector<Answer> answers = expected;
    answers.push_back({AnswerKind::File, 0, CString("c:\\x y\\f.bvh")});
    std::string text;
    for (const Answer& a : answers) text += FormatAnswer(a) + "\n";
    const AnswerScript again = ParseAnswers(text);
    EXPECT_TRUE(again.errors.empty());
    EXPECT_EQ(again.answers, answers);
  }
}

TEST(AnswerScript, BadLinesAreReportedWithTheirNumberAndLeftOut) {
  const AnswerScript script = ParseAnswers(
      "maybe\n"            // 1: unknown
      "button\n"           // 2: no number
      "button 2x\n"        // 3: not a whole number
      "pick\n"             // 4: no name
      "file   \n"          // 5: no path
      "ok now\n"           // 6: trailing words
      "progress-cancel\n"  // 7
      "yes");              // 8: fine, no final newline
  ASSERT_EQ(script.errors.size(), 7u);
  for (size_t i = 0; i < script.errors.size(); ++i) {
    EXPECT_EQ(script.errors[i].rfind("line " + std::to_string(i + 1) + ":", 0), 0u)
        << script.errors[i];
  }
  EXPECT_EQ(script.answers, (std::vector<Answer>{{AnswerKind::Yes, 0, CString()}}));
  EXPECT_FALSE(script.cancel_progress_at.has_value());
}

}  // namespace
}  // namespace KRX::rt
