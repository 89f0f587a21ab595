#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Trace/Capture.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("CoreTestDefault")

namespace {

// Formatting this has a visible side effect.
struct Noisy {
  int* formatted;
};

}  // namespace

template <>
struct fmt::formatter<Noisy> : fmt::formatter<int> {
  auto format(const Noisy& n, fmt::format_context& ctx) const {
    return fmt::formatter<int>::format(++*n.formatted, ctx);
  }
};

namespace {

Trace::Handle pimA("CoreTestPimA");
Trace::Handle pimMib("CoreTestPimMIB");
Trace::Handle other("CoreTestOther");

std::string levels(const Trace::Handle& h) {
  std::string out;
  for (int l = 0; l <= Trace::kMaxLevel; ++l) {
    if (h.enabled(l)) out.push_back(static_cast<char>('0' + l));
  }
  return out;
}

// Leaves the process-wide trace state as it found it.
struct TraceTest : ::testing::Test {
  std::string saved = Trace::setting();
  void SetUp() override { Trace::disableAll(); }
  void TearDown() override {
    Trace::defaultSinkIs();
    Trace::disableAll();
    Trace::enable(saved);
  }
};

TEST_F(TraceTest, SettingStringsSelectFacilitiesAndLevels) {
  EXPECT_TRUE(Trace::enable("CoreTestPimA/8"));
  EXPECT_EQ(levels(pimA), "8");
  EXPECT_EQ(levels(other), "");
  EXPECT_TRUE(Trace::enable("CoreTestPimA/0-2,CoreTestOther/08"));  // later items win
  EXPECT_EQ(levels(pimA), "012");
  EXPECT_EQ(levels(other), "08");
  EXPECT_TRUE(Trace::enable("CoreTestPim*/4"));
  EXPECT_EQ(levels(pimA), "4");
  EXPECT_EQ(levels(pimMib), "4");
  EXPECT_EQ(levels(other), "08");
  EXPECT_TRUE(Trace::enable("CoreTestPim*MIB/1-35"));
  EXPECT_EQ(levels(pimMib), "1235");
  EXPECT_EQ(levels(pimA), "4");
  EXPECT_TRUE(Trace::enable("*"));
  EXPECT_EQ(levels(other), "0123456789");
  static Trace::Handle late("CoreTestLate");  // a new handle picks up the setting
  EXPECT_EQ(levels(late), "0123456789");

  Trace::disableAll();
  EXPECT_EQ(levels(pimA), "");
  EXPECT_TRUE(Trace::enable("CoreTestOther/3,,CoreTestPimA"));
  const std::string before = Trace::setting();
  for (const char* bad :
       {"CoreTestPimA/a", "CoreTestPimA/2-1", "CoreTestPimA/1-", "CoreTestPimA/-1", "/3",
        "CoreTestPimA/1,CoreTestOther/x", "CoreTestPimA/1/2"}) {
    EXPECT_FALSE(Trace::enable(bad)) << bad;
    EXPECT_EQ(Trace::setting(), before) << bad;
  }
  EXPECT_EQ(levels(other), "3");
  EXPECT_EQ(levels(pimA), "0123456789");
  Trace::disableAll();
  EXPECT_TRUE(Trace::enable(before));  // setting() round-trips
  EXPECT_EQ(Trace::setting(), before);
  EXPECT_EQ(levels(other), "3");
}

TEST_F(TraceTest, DisabledLevelsDoNotFormat) {
  int formatted = 0;
  Trace::Capture cap("CoreTestDefault/8");
  TRACE7("skipped {}", Noisy{&formatted});
  TRACE_AT(other, 8, "skipped {}", Noisy{&formatted});
  EXPECT_EQ(formatted, 0);
  TRACE8("kept {}", Noisy{&formatted});
  EXPECT_EQ(formatted, 1);
  ASSERT_EQ(cap.lines().size(), 1u);
  EXPECT_EQ(cap.lines()[0].facility, "CoreTestDefault");
  EXPECT_EQ(cap.lines()[0].level, 8);
  EXPECT_EQ(cap.lines()[0].message, "kept 1");
}

TEST_F(TraceTest, CaptureRestoresThePreviousSettingAndSink) {
  std::vector<std::string> outer;
  Trace::sinkIs([&](const Trace::Handle&, int, std::string_view m) { outer.emplace_back(m); });
  Trace::enable("CoreTestOther/1");
  {
    Trace::Capture cap("CoreTestOther/5");
    EXPECT_EQ(levels(other), "5");
    {
      Trace::Capture inner("CoreTestOther/6");
      TRACE_AT(other, 6, "inner");
      EXPECT_EQ(inner.count("inner"), 1u);
    }
    EXPECT_EQ(levels(other), "5");
    TRACE_AT(other, 5, "outer capture");
    EXPECT_EQ(cap.count("capture"), 1u);
    EXPECT_EQ(cap.count("inner"), 0u);
  }
  EXPECT_EQ(Trace::setting(), "CoreTestOther/1");
  TRACE_AT(other, 1, "custom sink");
  EXPECT_EQ(outer, (std::vector<std::string>{"custom sink"}));
}

TEST(ClockTest, ManualAndScopedClocks) {
  const Ent::Ptr<Plat::Clock> original = Plat::currentClockPtr();
  EXPECT_GT(Plat::now(), 1.6e9);  // the system clock: Unix seconds
  {
    auto manual = Ent::make<Plat::ManualClock>();
    struct Rx : Ent::ReactorOf<Plat::Clock> {
      using ReactorOf::ReactorOf;
      void onChange(const Ent::Change& c) override { attrs.push_back(c.attr); }
      std::vector<Ent::AttrId> attrs;
    } rx{manual};
    Plat::ScopedClock outer(manual);
    EXPECT_EQ(Plat::now(), 1000.0);
    {
      Plat::ScopedClock inner(Ent::make<Plat::ManualClock>(20.0));
      EXPECT_EQ(Plat::now(), 20.0);
    }
    EXPECT_EQ(Plat::currentClockPtr(), manual);
    manual->nowIs(1500.0);
    manual->advance(2.5);
    EXPECT_EQ(Plat::now(), 1502.5);
    EXPECT_EQ(rx.attrs, (std::vector<Ent::AttrId>{Plat::Clock::attrNow, Plat::Clock::attrNow}));
    Plat::ScopedClock none(nullptr);  // null installs a system clock
    EXPECT_EQ(Plat::currentClock().typeName(), "Plat::SystemClock");
  }
  EXPECT_EQ(Plat::currentClockPtr(), original);
}

}  // namespace
