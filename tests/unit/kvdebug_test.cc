// The option counts once per process, so every scenario runs in a process of its own, in a fresh
// directory, and what it leaves behind is looked at afterwards.

#include "common/kvdebug.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/hash.h"
#include "common/html.h"
#include "common/kvinstdir.h"
#include "common/vector.h"
#include "common/zip_archive.h"
#include "host/host.h"
#include "tests/unit/fixtures.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

class kvdebug : public process_test {
 protected:
  // Runs the option and then `rest`, which must end well or, when it is fatal, by a message.
  template <class Rest>
  std::string run(const char* option, Rest rest, bool is_fatal = false) {
    const std::string said = process_test::run([&] {
      host::begin_run();
      db_options(option);
      rest();
    });
    EXPECT_TRUE(is_fatal ? status == left_with + 1 : status <= 1) << option << ' ' << status;
    return said;
  }

  std::string run(const char* option) {
    return run(option, [] {});
  }
};

// The warnings as they appear: a plain line adds a newline of its own.
std::string warning(const std::string& text) {
  return "KVDEBUG (warning): " + text + "\n";
}

TEST_F(kvdebug, lines_have_the_documented_layout) {
  run("on", [] {
    const char* const args[] = {"-I.", "a b"};
    db_trace_args(2, args);
    db_trace_args(0, nullptr);
    db_enter("common\\alert.cc", 1, "outer", "%s, %d", "x", 2);
    db_enter("/src/alert.cc", 22, "inner", nullptr);
    db_tracef("alert", 412, "first %d\n\nsecond %d\n", 1);
    db_trace("a_module_name_of_26_letters", 7, "as it is: %d");
    db_exit("alert", 30, "inner", "%d", 5);
    db_exit("alert", 31, "outer", nullptr);
    db_printf("%s %%", "plain");
    db_alert("a diagnostic\n");
  });
  EXPECT_EQ(read("preprocessor-1.out"),
            "\nAPP: preprocessor\n"
            "ARGS: -I. a b\n"
            "ARGS: None\n"
            "alert.cc:1          > ENTER outer(x, 2)\n"
            "alert.cc:22         >     ENTER inner()\n"
            "alert:412           >         first 1\n"
            "alert:412           >         second %d\n"
            "a_module_name_of_26_letters:7>         as it is: %d\n"
            "alert:30            >     EXIT inner() -> 5\n"
            "alert:31            > EXIT outer()\n"
            "plain %\n"
            "ALERT> a diagnostic\n");
  EXPECT_EQ(run("on",
                [] {
                  db_exit("f", 1, "g", nullptr);
                  db_tracef("f", 2, "\n");
                  db_trace("f", 3, "");
                }),
            warning("min debug-out indent level reached") +
                warning("tracef (at f:2) contains no lines") +
                warning("trace (at f:3) contains no lines"));
}

TEST_F(kvdebug, failed_checks_become_messages_of_the_chosen_kind) {
  const auto fail = [] {
    hash_destroy(hash_create(0, nullptr, nullptr, __FILE__, __LINE__));
    db_puts("went on");
  };
  EXPECT_EQ(run("out:t,assert:ignore", fail), "");
  for (const char* option : {"out:t,assert:warning", "out:t,assert:error"}) {
    const std::string text = run(option, fail);
    EXPECT_NE(text.find("assertion failure: size != 0 ("), std::string::npos) << text;
    EXPECT_NE(text.find("hash.cc:"), std::string::npos) << text;
    EXPECT_EQ(read("t"), "went on\n");
  }
  fs::remove(dir / "t");
  const std::string text = run("out:t,assert:fatal", fail, true);
  EXPECT_NE(text.find("1503"), std::string::npos) << text;
  EXPECT_EQ(read("t"), "");
}

TEST_F(kvdebug, slips_of_callers_are_told_and_do_no_harm) {
  const std::string text = run("out:t,assert:warning", [] {
    vector* const v = vec_create_chunk(0, "v.cc", 1);
    vec_push(v, 1);
    vec_move(v, 0, 1);
    vec_sort(v, nullptr);
    EXPECT_EQ(vec_iter_more(v), 0);
    EXPECT_EQ(vec_iter_next(v), 0U);
    EXPECT_EQ(vec_iter_current(v), 0U);
    EXPECT_EQ(vec_count(v), 1U);
    html_vcell("c", {});
    html_table_end();
    EXPECT_EQ(kvinstdir(KVINSTDIR_LAST), nullptr);
    EXPECT_EQ(cmode_set(nullptr), CMODE_NONE);
  });
  for (const char* check :
       {"chunk != 0 (", "to < v->count (", "compare != NULL (", "v->iterators != NULL (",
        "curTable != NULL (", "which < KVINSTDIR_LAST (", "opt != NULL ("}) {
    EXPECT_NE(text.find("assertion failure: " + std::string(check)), std::string::npos) << check;
  }
}

TEST_F(kvdebug, a_missing_container_ends_the_run_where_checks_are_fatal) {
  const std::string option = "out:t,assert:fatal";
  const std::string text = run(
                               option.c_str(), [] { vec_push(nullptr, 1); }, true) +
                           run(
                               option.c_str(), [] { hash_find(nullptr, 1); }, true);
  EXPECT_NE(text.find("is_alive(v) ("), std::string::npos) << text;
  EXPECT_NE(text.find("is_alive(h) ("), std::string::npos) << text;
}

TEST_F(kvdebug, html_without_a_report_is_nothing_and_a_style_sheet_is_named) {
  run("out:t", [] {
    html_frames(1);
    html_heading(1, "h");
    html_table_begin(1);
    html_vcell("c", {});
    html_table_end();
    html_close();
    html_end();
    html_open("r.htm", nullptr, nullptr, "look.css");
    html_heading(1, "h");
    html_vcell("no table", {});
    html_close();
  });
  const std::string page = read("r.htm");
  EXPECT_NE(page.find("look.css"), std::string::npos) << page;
  EXPECT_NE(page.find("no table"), std::string::npos) << page;
  EXPECT_EQ(page.find("TITLE"), std::string::npos) << page;
}

TEST_F(kvdebug, containers_report_their_statistics) {
  run("adt", [] {
    const auto compare = [](word a, word b) { return a == b ? 0 : 1; };
    hash_table* const h = hash_create(2, nullptr, compare, "h.cc", 5);
    hash_insert(h, 2, 20, "x", 1);
    hash_insert(h, 3, 30, "x", 1);
    hash_remove(h, 3);
    hash_insert(h, 4, 40, "x", 1);
    hash_destroy(h);
    vec_push(vec_create("a.cc", 1), 9);
    vec_destroy(vec_create_chunk(3, "b.cc", 2));
    vector* const v = vec_create("a.cc", 1);
    vec_set(v, 1, 10);
    vec_destroy(v);
    db_close();
  });
  std::string text = read("preprocessor-1.out");
  // Addresses are the only thing that differs from run to run.
  for (std::size_t at; (at = text.find("# 0x")) != std::string::npos;) {
    text.replace(at, text.find(' ', at + 2) - at, "# PTR");
  }
  EXPECT_EQ(text,
            "HASH @ h.cc:5 (2/2) clashed 1 times inserting (0x4,0x28)\n"
            "# Hash Table Master List:\n"
            "# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp"
            "    voidhash    alive\n"
            "# PTR    h.cc:5    2/2    2/2    1    n    Y    n\n"
            "# Living Vector Master List:\n"
            "# ptr    file:line    max_count/capacity    alive\n"
            "# PTR    a.cc:1    1/10    Y\n"
            "# Vector Master List Summary:\n"
            "#                                                                  Living             "
            " Dead                Total\n"
            "#                                file:line                         vectors/capacity   "
            " vectors/capacity    vectors/capacity\n"
            "#                                b.cc:2                            0/0    1/0    1/0\n"
            "#                                a.cc:1                            1/10    1/20    "
            "2/30\n"
            "#                       Total Summary:0                            1/10    2/20    "
            "3/30\n");
  run("adt", [] { db_close(); });
  EXPECT_NE(read("preprocessor-1.out").find("alive\n# No hash tables were used\n# Living"),
            std::string::npos);
}

class package_zip : public kvdebug {
 protected:
  void SetUp() override {
    if (!zip_archive::is_supported() || std::system("unzip -v > /dev/null 2>&1") != 0) {
      GTEST_SKIP() << "needs archive support and unzip";
    }
  }

  // What another program finds in the archive.
  std::string unzipped(const std::string& arguments) {
    const std::string command = "cd " + dir.string() + " && unzip " + arguments + " > unzipped.txt";
    EXPECT_EQ(std::system(command.c_str()), 0) << arguments;
    return read("unzipped.txt");
  }
};

TEST_F(package_zip, takes_more_files_packs_them_and_loses_none_when_one_cannot_be_read) {
  EXPECT_EQ(run("on,zip:z.zip",
                [] {
                  for (int i = 0; i < 20000; ++i) db_puts("the same line again");
                  db_close();
                }),
            "");
  EXPECT_NE(unzipped("-v z.zip").find("Defl:N"), std::string::npos);
  EXPECT_LT(fs::file_size(dir / "z.zip"), fs::file_size(dir / "preprocessor-1.out") / 50);

  file("sub/f.txt", "text");
  EXPECT_EQ(run("zip:+z.zip", [] { db_zip_add("sub\\f.txt", "a comment"); }), "");
  EXPECT_EQ(unzipped("-p z.zip sub/f.txt"), "text");
  EXPECT_NE(unzipped("-Z -v z.zip").find("a comment"), std::string::npos);
  EXPECT_EQ(unzipped("-p z.zip preprocessor-1.out"), read("preprocessor-1.out"));

  const std::string before = read("z.zip");
  EXPECT_EQ(run("zip:+z.zip", [] { db_zip_add("sub", nullptr); }),
            warning("Unable to add archive \"sub\" (from \"sub\") to package zip (z.zip)"));
  EXPECT_EQ(read("z.zip"), before);
  for (const auto& entry : fs::directory_iterator(dir)) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("z.zip.")) << entry.path();
  }
}

}  // namespace
}  // namespace kv
