// The message system counts, loads once and ends the process, so every case runs in a child process
// of its own, in a directory of its own. What the child writes to standard error, and how it ends,
// is what is checked; values that the child wants to show go the same way.

#include "common/alert.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>

#include "common/alloc.h"
#include "common/pathcmp.h"
#include "common/vector.h"
#include "tests/unit/fixtures.h"

namespace {

using namespace kv;

// The position that the cases give to the message system.
const char16_t* line_start = nullptr;
const char16_t* cursor = nullptr;
unsigned line_number = 12;

void at_line(const char16_t* file, unsigned line) {
  line_number = line;
  alert_set_position(file, &line_number, &line_start, &cursor);
}

void say(const std::string& text) {
  ASSERT_EQ(write(2, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Suites of this name run before all others, so the children inherit a message system that no other
// test has used.
using AlertDeathTest = process_test;

TEST_F(AlertDeathTest, FatalMessagesStayFatalWhateverAMessageFileCallsThem) {
  for (const char* type : {"M", "E", "-9", "?"}) {
    std::string text;
    for (const std::uint32_t number : fatal_messages)
      text += std::to_string(number) + "\t" + type + "\tof the file\n";
    file("20990101000000_en.msgs", text);
    for (const std::uint32_t number : fatal_messages) {
      const std::string said = run([&] {
        alert_set_action(number, ALERT_ACTION_OFF);
        alert_set_warnlevel(100);
        alert_msg(number);
        say("went on");
      });
      EXPECT_EQ(status, left_with + 1) << number << ' ' << type;
      const std::string line = "(" + std::to_string(number) + ") of the file\n";
      EXPECT_TRUE(said.ends_with(line)) << said;
    }
  }
}

TEST_F(AlertDeathTest, ExhaustedMemoryIsReportedOnceHoweverOftenItRunsOut) {
  file("20990101000000_en.msgs", "296\tM\tof the file\n");
  const char said[] = "a.c: 12: (296) out of memory\n";
  const auto fail = [] {
    alloc_prepare();
    at_line(u"a.c", 12);
    std::get_new_handler()();  // as a failing `new` does
  };
  EXPECT_EQ(run(fail), said);  // no message file is read for it
  EXPECT_EQ(status, left_with + 1);

  EXPECT_EQ(run([&] {
              alert_set_exit([](int) { alloc_failed(); });
              fail();
            }),
            said);
  EXPECT_EQ(status, 1);  // the way out needed memory, too

  EXPECT_EQ(run([&] {
              alert_set_prehook([] { alloc_failed(); });
              fail();
            }),
            "(296) out of memory\n");
  EXPECT_EQ(status, 1);

  EXPECT_EQ(run([&] {
              alert_lookup(296);
              fail();
            }),
            "a.c: 12: (296) of the file\n");
  EXPECT_EQ(status, left_with + 1);
}

TEST_F(AlertDeathTest, VariantsWithoutLineOrPosition) {
  const auto variants = [](int formats, const char16_t* name) {
    alert_use_formats(formats);
    at_line(name, 7);
    alert_msg_noline(1446, "x");
    alert_msg_nopos(1446, "x");
    alert_msg(1446, "x");
  };
  EXPECT_EQ(run([&] { variants(1, u"a.c"); }),
            "Non line specific message: : #info: x\n#info: x\na.c: 7: #info: x\n");
  EXPECT_EQ(run([&] { variants(0, u"a.c"); }),
            "Non line specific message: #info: x\n: #info: x\na.c: 7: #info: x\n");
  EXPECT_EQ(run([&] { variants(0, u""); }), "#info: x\n#info: x\n7: #info: x\n");
  EXPECT_EQ(run([] {
              setenv("LVX_MSG_FORMAT", "%f:%l:  %c: %s", 1);
              alert_use_formats(1);
              at_line(u"a.c", 7);
              alert_msg_nopos(1446, "x");
            }),
            " #info: x\n");
}

TEST_F(AlertDeathTest, WhatIsNotKnownOfThePositionIsLeftOut) {
  const char16_t* const text = u"abc";
  const char16_t* const end = text + 3;
  const char16_t* const nowhere = nullptr;
  const struct {
    const char16_t* file;
    const unsigned* line;
    const char16_t *const *start, *const *cursor;
    const char *in_template, *as_gcc;
  } cases[] = {
      {nullptr, &line_number, &text, &end, "||", "cpp"},
      {u"a.c", nullptr, &text, &end, "a.c||", "a.c"},
      {u"a.c", &line_number, nullptr, &end, "a.c|12|", "a.c:12:1"},
      {u"a.c", &line_number, &nowhere, &end, "a.c|12|", "a.c:12:1"},
      {u"a.c", &line_number, &text, &nowhere, "a.c|12|", "a.c:12:1"},
      {u"a.c", &line_number, &text, &end, "a.c|12|3", "a.c:12:3"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(run([&] {
                alert_set_position(c.file, c.line, c.start, c.cursor);
                setenv("LVX_ERR_FORMAT", "%f|%l|%c", 1);
                alert_use_formats(1);
                alert_msg(109);
                alert_use_gcc_layout();
                alert_msg(109);
                alert_typed("m", "typed");
                alert_msg_nopos(109);
              }),
              std::string(c.in_template) + "\n" + c.as_gcc +
                  ": error: #include syntax error [109]\n" + c.as_gcc +
                  ": note: typed\ncpp: error: #include syntax error [109]\n");
  }
}

TEST_F(AlertDeathTest, MissingTextsAreShownAsSuch) {
  EXPECT_EQ(run([] {
              alert_use_formats(1);
              alert_raw(9, "m", "before any template");
              alert_raw(9, nullptr, nullptr);
              alert_printf(nullptr);
              say(alert_str(nullptr));
            }),
            "before any template\n(null)\n(null)\n(null)");
}

TEST_F(AlertDeathTest, TypedReportsCountErrorsBeforeTheThreshold) {
  EXPECT_EQ(run([] {
              alert_set_warnlevel(11);
              set_maxerrors(1);
              const bool shown = alert_raw(7, "E", "hidden") || alert_raw(7, "F", "hidden too");
              say(shown ? "shown" : "dropped\n");
              alert_raw(7, "12", "level twelve");
              alert_raw(7, "-3", "low");
              alert_raw(7, "E", "one too many");
            }),
            "dropped\n(7) level twelve (warning)\n");
  EXPECT_EQ(status, left_with + 1);
  EXPECT_EQ(run([] {
              alert_raw(7, "x", "odd");
              alert_raw(7, "m", "plain");
              alert_raw(7, "f", "fatal");
            }),
            "(7) odd (warning)\nplain\n(7) fatal\n");
  EXPECT_EQ(status, left_with + 1);
  run([] { alert_fatal(3); });
  EXPECT_EQ(status, left_with + 1);
}

TEST_F(AlertDeathTest, DescriptionOfErrnoIsCutWithItsText) {
  const std::string text = std::string(508, '%') + "%m";
  EXPECT_EQ(run([&] {
              errno = ENOENT;
              alert_raw(1, "M", text.c_str());
              errno = 0;
              alert_raw(1, "M", "[%m]");
            }),
            std::string(254, '%') + "No \n[]\n");
}

TEST_F(AlertDeathTest, UnknownNumberIsAnErrorWithItsOwnText) {
  EXPECT_EQ(run([] { alert_msg(9999, 1); }),
            "(9999) An error, warning or message was generated, but no description is available\n");
  EXPECT_EQ(status, 1);
}

TEST_F(AlertDeathTest, OnceReportsAPlaceOnlyOnce) {
  EXPECT_EQ(run([] {
              const char16_t* name = u"a.c";
              const auto once = [&](const char16_t* file_name, unsigned line) {
                at_line(file_name, line);
                alert_msg_once(1342);
              };
              once(name, 1);
              once(std::u16string(name).c_str(), 1);
              once(name, 2);
              once(u"b.c", 1);
              at_line(nullptr, 1);
              alert_set_warnlevel(1);
              alert_msg_once(1342);
              alert_set_warnlevel(0);
              alert_msg_once(1342);
              alert_msg_once(1342);
            }),
            "a.c: 1: (1342) whitespace after \"\\\" (warning)\n"
            "a.c: 2: (1342) whitespace after \"\\\" (warning)\n"
            "b.c: 1: (1342) whitespace after \"\\\" (warning)\n"
            "1: (1342) whitespace after \"\\\" (warning)\n");
}

TEST_F(AlertDeathTest, UnreadableChoiceLeavesTheBuiltInMessages) {
  file("20990101000000_en.msgs", "1446\tM\tunread\n");
  std::filesystem::permissions(dir / "20990101000000_en.msgs", std::filesystem::perms::none);
  std::filesystem::permissions(dir, std::filesystem::perms::all);
  const std::string text = run([] {
    if (geteuid() == 0 && seteuid(65534) != 0) _exit(99);  // the superuser can read it
    alert_msg(1446, "x");
    EXPECT_EQ(seteuid(getuid()), 0);
  });
  EXPECT_TRUE(text.starts_with("Can't open file ")) << text;
  EXPECT_TRUE(
      text.ends_with("20990101000000_en.msgs, the built-in messages are used\n\n#info: x\n"))
      << text;
  EXPECT_EQ(status, 0);
}

TEST_F(AlertDeathTest, DescriptionFileSuppliesTextsButNoTypes) {
  file("sub/20980101000000_en.msgs", "111\tE\tnewer %s\n");
  file("sub/20970101000000_en.msgs", "111\tE\tolder %s\n");
  file("sub/en_msgs.txt", "111\tE\tlegacy %s\n");
  file("empty/readme", "");
  EXPECT_EQ(run([] {
              const auto try_edf = [](bool result) { say(result ? "true\n" : "false\n"); };
              try_edf(open_edf("missing"));
              try_edf(open_edf(nullptr));
              try_edf(open_edf(builtin_catalogue_name()));
              try_edf(open_edf("sub/en_msgs.txt"));
              alert_msg(111, "a", "b", 1);
              try_edf(open_edf_dir("nowhere"));
              try_edf(open_edf_dir("empty"));
              try_edf(open_edf_dir("sub"));
              try_edf(open_edf("sub/20970101000000_en.msgs"));
              alert_msg(111, "a", "b", 1);
            }),
            "false\nfalse\ntrue\ntrue\n"
            "(111) redefining preprocessor macro \"a\" (b: 1) (warning)\n"
            "false\ntrue\ntrue\ntrue\n(111) newer a (warning)\n");
  EXPECT_EQ(status, 0);
}

TEST_F(AlertDeathTest, PromotionAndControlRules) {
  // Shown as one letter each: 107 and 111 (warnings), 109 (error), 1446 (message), 141 (fatal).
  const struct {
    std::vector<const char*> options;
    const char* want;
    int bad_identifiers;
  } cases[] = {
      {{}, "WWEMF", 0},
      {{"--Werror"}, "EEEMF", 0},
      {{"--Werror", "--Wno-error=111"}, "EWEMF", 0},
      {{"--Werror=111", "--Wno-error"}, "WEEMF", 0},
      {{"--Werror=111", "--Wno-error=111"}, "WWEMF", 0},
      {{"--Wno-error=111", "--Werror=111", "--Werror"}, "EEEMF", 0},
      {{"--Werror", "--Wno-error=all"}, "WWEMF", 0},
      {{"--Werror=abc", "--Werror=", "--Werror=0", "-Wno-error=-1"}, "WWEMF", 4},
      {{"--Werror=111x"}, "WEEMF", 1},
      {{"---werror=ALL"}, "EEEMF", 0},
      {{"--Werrorx", "Werror", "--Werror2", ""}, "WWEMF", 0},
      {{"0,111"}, "SSESF", 0},
      {{"109,1446,141"}, "WWESF", 0},
      {{"109:off,111:OFFICE, 107,+141:off"}, "SSSMF", 0},
      {{"-5,4294967295:off,99999999999999,,x"}, "WWEMF", 0},
      {{"--Werror", "111"}, "EEEMF", 0},
      {{"111", "--Werror=111"}, "WEEMF", 0},
      {{"--Werror=111", "111,1446", "--Wno-error=111", "--Werror"}, "ESESF", 0},
  };
  for (const auto& c : cases) {
    const std::string text = run([&] {
      for (const char* option : c.options) {
        if (std::string(option).find('W') != std::string::npos || *option == '-')
          werr_setOption(option, 0);
        if (!werr_isOption(option)) alert_msgdisable(option);
      }
      std::string types;
      for (const unsigned number : {107U, 111U, 109U, 1446U, 141U})
        types += "NFMEWS"[alert_lookup(number).type];
      say(types);
    });
    std::string want;
    for (int i = 0; i < c.bad_identifiers; ++i)
      want +=
          "(1606) w[no-]error option has been passed an invalid or missing message identifier\n";
    EXPECT_EQ(text, want + c.want) << (c.options.empty() ? "" : c.options[0]);
  }
  EXPECT_EQ(run([] { werr_setOption("--Werror=x", 1); }), "");
}

TEST_F(AlertDeathTest, ControlTablesStack) {
  const auto type = [](unsigned number) { say({"NFMEWS"[alert_lookup(number).type]}); };
  EXPECT_EQ(run([&] {
              alert_set_action(0, ALERT_ACTION_POP);
              alert_set_action(109, ALERT_ACTION_SUPPRESS);
              alert_set_action(0, ALERT_ACTION_PUSH);
              alert_set_action(107, ALERT_ACTION_PROMOTE);
              type(109), type(107);
              alert_set_action(0, ALERT_ACTION_CLEAR);
              type(109), type(107);
              alert_set_action(0, ALERT_ACTION_POP);
              alert_set_action(0, ALERT_ACTION_POP);
              type(109), type(107);
              alert_set_action(0, ALERT_ACTION_SUPPRESS_ALL);
              type(104), type(107), type(1446), type(141), type(9999);
              alert_set_action(0, ALERT_ACTION_CLEAR);
              alert_set_action(0, ALERT_ACTION_DISABLE_ALL);
              alert_set_action(107, ALERT_ACTION_DEFAULT);
              type(104), type(107), type(1446), type(111);
              alert_set_action(107, 11);
              alert_set_action(107, -1);
              type(107);
            }),
            "SEEWSWSSSFEEWSSW");
}

TEST_F(AlertDeathTest, DemotedErrorIsShownAboveARaisedThreshold) {
  EXPECT_EQ(run([] {
              alert_set_warnlevel(5);
              alert_set_action(109, ALERT_ACTION_DEMOTE);
              alert_msg(109);
            }),
            "(109) #include syntax error (warning)\n");
  EXPECT_EQ(status, 0);
}

TEST(MessageFiles, VersionIsTheNumberThatTheNameBeginsWith) {
  EXPECT_EQ(getMsgFileVersion("C:\\dat/1\\20240102030405_en.msgs"), 20240102030405U);
  EXPECT_GT(getMsgFileVersion("99999999999999999999999999_en.msgs"), 20990101000000U);
  EXPECT_EQ(getMsgFileVersion("en_msgs.txt"), 0U);
  EXPECT_EQ(getMsgFileVersion("7:"), 0U);
}

}  // namespace
