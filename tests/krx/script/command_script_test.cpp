#include "script/command_script.h"

#include <gtest/gtest.h>

namespace KRX::rt {
namespace {

TEST(CommandScript, ParsesEveryArgumentKind) {
  ScriptParseResult r =
      ParseCommandLine(R"(Retarget("hero", "vil\"lain\\", 1, -120, 2.5, true, false, null))");
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.commands.size(), 1u);
  const ScriptCommand& c = r.commands[0];
  EXPECT_EQ(c.name, "Retarget");
  ASSERT_EQ(c.args.size(), 8u);
  EXPECT_EQ(c.args[0].GetString().GetAsciiString(), "hero");
  EXPECT_EQ(c.args[1].GetString().GetAsciiString(), "vil\"lain\\");
  EXPECT_EQ(c.args[2].GetType(), ValueType::Int);
  EXPECT_EQ(c.args[3].GetInt(), -120);
  EXPECT_EQ(c.args[4].GetType(), ValueType::Double);
  EXPECT_DOUBLE_EQ(c.args[4].GetDouble(), 2.5);
  EXPECT_TRUE(c.args[5].GetBool());
  EXPECT_EQ(c.args[6].GetType(), ValueType::Bool);
  EXPECT_FALSE(c.args[6].GetBool());
  EXPECT_TRUE(c.args[7].IsEmpty());
  {  // Formatted back, the command reads back unchanged.
    const std::string text = FormatCommand(c);
    const ScriptParseResult again = ParseCommandLine(text);
    ASSERT_TRUE(again.ok) << text;
    ASSERT_EQ(again.commands.size(), 1u);
    EXPECT_EQ(again.commands[0].name, c.name);
    EXPECT_EQ(again.commands[0].args, c.args);
  }
}

TEST(CommandScript, BlankAndCommentLines) {
  {  // No arguments, blanks and a trailing comment.
    ScriptParseResult r = ParseCommandLine("  NewScene ( )   # start over");
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.commands.size(), 1u);
    EXPECT_TRUE(r.commands[0].args.empty());
  }
  {  // A '#' inside text is text.
    ScriptParseResult r = ParseCommandLine(R"(Log("a # b"))");
    ASSERT_TRUE(r.ok);
    ASSERT_EQ(r.commands.size(), 1u);
    ASSERT_EQ(r.commands[0].args.size(), 1u);
    EXPECT_EQ(r.commands[0].args[0].GetString().GetAsciiString(), "a # b");
  }
  {
    ScriptParseResult r = ParseCommandScript("# header\n\nA(1)\r\n  \nB(\"x\")\n");
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.commands.size(), 2u);
    EXPECT_EQ(r.commands[0].line, 3);
    EXPECT_EQ(r.commands[1].line, 5);
  }
}

TEST(CommandScript, ErrorsNameLineAndColumn) {
  const char* bad[] = {
      "Retarget(",          // unterminated argument list
      "Retarget(\"abc)",    // unterminated text
      "Retarget(1 2)",      // missing comma
      "Retarget(1,)",       // missing value
      "Retarget(abc)",      // bare word
      "Retarget(1) extra",  // text after the call
      "(1)",                // no name
      "Retarget 1",         // no parenthesis
      "Retarget(\"\\q\")",  // unknown escape
      "Retarget(1e999)",    // not finite
  };
  for (const char* line : bad) {
    ScriptParseResult r = ParseCommandScript(std::string("A()\n") + line);
    EXPECT_FALSE(r.ok) << line;
    EXPECT_EQ(r.error.rfind("line 2, column ", 0), 0u) << line << " -> " << r.error;
  }
}

}  // namespace
}  // namespace KRX::rt
