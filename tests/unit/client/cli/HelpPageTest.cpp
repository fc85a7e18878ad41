#include <gtest/gtest.h>

#include "client/cli/HelpPage.h"

namespace {

const HelpPage kPage{"tool do",
                     "Does it.",
                     "tool do [OPTION]... FILE",
                     {{"Options", {{"-q", "Says nothing"}, {"--a-long-option TEXT", "\\ and 'quotes'"}}}},
                     {{"'a' | tool do .x", ".x is a file"}}};

TEST(HelpPage, IsWrappedForATerminal) {
    EXPECT_EQ(HelpAsText(kPage, 30),
              "Does it.\n"
              "\n"
              "Usage: tool do [OPTION]... FILE\n"
              "\n"
              "Options:\n"
              "  -q                  Says\n"
              "                      nothing\n"
              "  --a-long-option TEXT\n"
              "                      \\ and\n"
              "                      'quotes'\n"
              "\n"
              "Examples:\n"
              "  'a' | tool do .x\n"
              "      .x is a file\n");
}

TEST(HelpPage, LetsNothingInAManualPageBeARequest) {
    const std::string manual = HelpAsManual(kPage);
    EXPECT_NE(manual.find(".SH NAME\ntool\\-do \\- Does it\n"), std::string::npos) << manual;
    EXPECT_NE(manual.find(".B \\-\\-a\\-long\\-option TEXT\n\\e and 'quotes'.\n"), std::string::npos)
        << manual;
    EXPECT_NE(manual.find(".B \\&'a' | tool do .x\n\\&.x is a file\n"), std::string::npos) << manual;
}

}  // namespace
