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
  // Values compare with their types: 1 is an integer, 2.5 a double.
  EXPECT_EQ(c.args, (CValueArray{CValue("hero"), CValue("vil\"lain\\"), CValue(1), CValue(-120),
                                 CValue(2.5), CValue(true), CValue(false), CValue()}));
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
  // No arguments, blanks, comments (a '#' inside text is text) and line numbers.
  ScriptParseResult r =
      ParseCommandScript("# header\n\n  NewScene ( )   # start over\r\n  \nLog(\"a # b\")\n");
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.commands.size(), 2u);
  EXPECT_TRUE(r.commands[0].args.empty());
  EXPECT_EQ(r.commands[0].line, 3);
  EXPECT_EQ(r.commands[1].line, 5);
  EXPECT_EQ(r.commands[1].args, CValueArray{CValue("a # b")});
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
