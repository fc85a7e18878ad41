#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/text/StringTokeniser.h"
#include "host/xml/MarkupTree.h"
#include "support/LogReader.h"
#include "support/TempDirectory.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class MarkupTreeTest : public testing::Test {
protected:
    bool Parse(std::string_view text) { return tree_.ParseText(LumString(text), "x.xml"); }

    /// The warning's text after the routine and the file, of a document that must be refused.
    std::string Refusal(std::string_view text) {
        const std::size_t before = log_.Said().size();
        EXPECT_FALSE(Parse(text));
        EXPECT_EQ(tree_.GetRootNode(), nullptr);
        const std::vector<std::string> lines = log_.Said();
        const std::string start = "warning Host MarkupTree::ParseText: x.xml: ";
        if (lines.size() != before + 1 || !lines.back().starts_with(start)) {
            return "unexpected: " + (lines.empty() ? "" : lines.back());
        }
        return lines.back().substr(start.size());
    }

    [[nodiscard]] const MarkupElementNode* Fetch(const LumString& path) const {
        StringTokeniser tokens(path, "/", 0);
        std::vector<LumString> names;
        LumString name;
        while (tokens.GetNextToken(name) != 0) {
            names.push_back(name);
        }
        return tree_.FetchNode(names);
    }
    /// The text that the element's first child is.
    [[nodiscard]] std::string FirstText(const LumString& path) const {
        const MarkupElementNode* const element = Fetch(path);
        const MarkupNode* const first = element != nullptr ? element->GetChildAt(0) : nullptr;
        const MarkupTextNode* const text = first != nullptr ? first->CastAsTextNode() : nullptr;
        return text != nullptr ? std::string(text->GetData().View()) : "(none)";
    }

    /// An element as "name(child,child)", a text in quotes.
    static std::string Shape(const MarkupElementNode& element) {
        std::string shape(element.GetTagName().View());
        shape += '(';
        for (uint32_t i = 0; i < element.GetChildCount(); ++i) {
            const MarkupNode& child = *element.GetChildAt(i);
            const MarkupTextNode* const text = child.CastAsTextNode();
            shape += i == 0 ? "" : ",";
            shape += text != nullptr ? "'" + std::string(text->GetData().View()) + "'"
                                     : Shape(*child.CastAsElementNode());
        }
        return shape + ")";
    }
    std::string ShapeOf(std::string_view text) {
        return Parse(text) ? Shape(*tree_.GetRootNode()) : "(refused)";
    }

    HostLogLines log_;
    MarkupTree tree_;
};

std::string Nested(uint32_t depth) {
    std::string text;
    for (uint32_t i = 0; i < depth; ++i) {
        text += "<a>";
    }
    for (uint32_t i = 0; i < depth; ++i) {
        text += "</a>";
    }
    return text;
}

}  // namespace

TEST_F(MarkupTreeTest, ReadsAModelDefinition) {
    ASSERT_TRUE(
        Parse("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!-- note -->\n<MODEL>\n  <NAME>Logon</NAME>\n"
              "  <CLASS></CLASS>\n  <NOTE/>\n  <PARAMS>\n    <PARAM><NAME>User</NAME></PARAM>\n"
              "    <PARAM><NAME>Count</NAME></PARAM>\n  </PARAMS>\n</MODEL>\n"));
    EXPECT_TRUE(tree_.GetRootNode()->IsNamed("MODEL"));
    EXPECT_FALSE(tree_.GetRootNode()->IsNamed("model"));
    EXPECT_EQ(tree_.GetRootNode()->GetTagName(), "MODEL");
    EXPECT_EQ(FirstText("MODEL/NAME"), "Logon");
    EXPECT_EQ(FirstText("MODEL/CLASS"), "(none)");
    EXPECT_EQ(FirstText("MODEL/NOTE"), "(none)");
    EXPECT_EQ(FirstText("MODEL/PARAMS"), "(none)") << "an element, not the blanks before it";
    EXPECT_EQ(FirstText("MODEL/PARAMS/PARAM/NAME"), "User");
    EXPECT_EQ(FirstText("MODEL/PARAMS/PARAM@0/NAME"), "User");
    EXPECT_EQ(FirstText("MODEL/PARAMS/PARAM@1/NAME"), "Count");
    EXPECT_EQ(Fetch("MODEL/PARAMS/PARAM@2/NAME"), nullptr);
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(MarkupTreeTest, KeepsTextAsTheDocumentSpellsIt) {
    EXPECT_EQ(ShapeOf("<a>  two  words\n </a>"), "a('  two  words\n ')");
    EXPECT_EQ(ShapeOf("<a> \t</a>"), "a(' \t')");
    EXPECT_EQ(ShapeOf("<a>&lt;&gt;&amp;&quot;&apos;&#65;&#x20AC;&#x1F600;</a>"),
              "a('<>&\"'A\u20ac\U0001F600')");
    EXPECT_EQ(ShapeOf("<a>&amp;lt;</a>"), "a('&lt;')");
    EXPECT_EQ(ShapeOf("<a>M\u00fcller</a>"), "a('M\u00fcller')");
    EXPECT_EQ(ShapeOf("<a>1\r\n2\r3\n4&#13;</a>"), "a('1\n2\n3\n4\r')");
}

TEST_F(MarkupTreeTest, ACharacterDataSectionIsATextOfItsOwn) {
    EXPECT_EQ(ShapeOf("<a>x<![CDATA[<b>&amp;\r\n]]>y</a>"), "a('x','<b>&amp;\n','y')");
    EXPECT_EQ(ShapeOf("<a>\n<![CDATA[x]]>\n</a>"), "a('x')");
    EXPECT_EQ(ShapeOf("<a><![CDATA[ ]]></a>"), "a(' ')");
    EXPECT_EQ(ShapeOf("<a><![CDATA[]]></a>"), "a()") << "nothing is given";
    EXPECT_EQ(ShapeOf("<a><![CDATA[]]>x</a>"), "a('x')");
}

TEST_F(MarkupTreeTest, LeavesOutCommentsInstructionsAndTheBlanksBetweenElements) {
    EXPECT_EQ(ShapeOf("<a> <b/> <!-- c --> <?d e?> <f/>\n</a>"), "a(b(),f())");
    EXPECT_EQ(ShapeOf("<a>x<!-- & < -->y</a>"), "a('x','y')");
    EXPECT_EQ(ShapeOf("<a>text <b/> tail</a>"), "a('text ',b(),' tail')");
}

TEST_F(MarkupTreeTest, ANodeIsTheOneKindOnly) {
    ASSERT_TRUE(Parse("<a>x<b/></a>"));
    const MarkupElementNode& root = *tree_.GetRootNode();
    EXPECT_EQ(root.GetChildCount(), 2U);
    EXPECT_NE(root.GetChildAt(0)->CastAsTextNode(), nullptr);
    EXPECT_EQ(root.GetChildAt(0)->CastAsElementNode(), nullptr);
    EXPECT_EQ(root.GetChildAt(1)->CastAsTextNode(), nullptr);
    EXPECT_NE(root.GetChildAt(1)->CastAsElementNode(), nullptr);
    EXPECT_EQ(root.GetChildAt(2), nullptr);
    EXPECT_EQ(root.GetChildAt(0xFFFFFFFF), nullptr);
}

TEST_F(MarkupTreeTest, TakesAByteOrderMarkADoctypeAndAnAsciiDeclaration) {
    EXPECT_EQ(ShapeOf("\xEF\xBB\xBF<?xml version='1.0' encoding='US-ASCII'?><a/>"), "a()");
    EXPECT_EQ(
        ShapeOf("<!DOCTYPE a SYSTEM \"a.dtd\" [<!ELEMENT a ANY>]>\n<a b='1' c=\"&lt;\"/>\n<!-- end -->\n"),
        "a()");
}

TEST_F(MarkupTreeTest, KnowsWhereEachNodeBegins) {
    ASSERT_TRUE(
        Parse("<?xml version='1.0'?>\n<a>\n  <b>\u20ac&amp;</b><c\n  d=''>\r\n x<![CDATA[y]]></c></a>"));
    const auto place = [](const MarkupNode* node) {
        return std::pair(node->GetPosition().line, node->GetPosition().column);
    };
    EXPECT_EQ(place(Fetch("a")), std::pair(2U, 1U));
    EXPECT_EQ(place(Fetch("a/b")), std::pair(3U, 3U));
    EXPECT_EQ(place(Fetch("a/b")->GetChildAt(0)), std::pair(3U, 6U));
    EXPECT_EQ(place(Fetch("a/c")), std::pair(3U, 16U)) << "a column counts characters";
    EXPECT_EQ(place(Fetch("a/c")->GetChildAt(0)), std::pair(4U, 8U)) << "the line break is part of the text";
    EXPECT_EQ(place(Fetch("a/c")->GetChildAt(1)), std::pair(5U, 12U));
}

TEST_F(MarkupTreeTest, SaysWhereADocumentIsNotWellFormed) {
    EXPECT_EQ(Refusal("<a>\n  <b>\n  </c>\n</a>"), "line 3, column 5: mismatched tag");
    EXPECT_EQ(Refusal("<a>"), "line 1, column 4: no element found");
    EXPECT_EQ(Refusal(""), "line 1, column 1: no element found");
    EXPECT_EQ(Refusal("<!-- only -->"), "line 1, column 14: no element found");
    EXPECT_EQ(Refusal("text"), "line 1, column 1: syntax error");
    EXPECT_EQ(Refusal("<a/>x"), "line 1, column 5: junk after document element");
    EXPECT_EQ(Refusal("<a/>\n<![CDATA[x]]>"), "line 2, column 1: junk after document element");
    EXPECT_EQ(Refusal("<a/>\r\n<b/>"), "line 2, column 1: junk after document element");
    EXPECT_EQ(Refusal("<a>\r\u20ac\u20ac&x;</a>"), "line 2, column 3: undefined entity");
    EXPECT_EQ(Refusal("<a>]]></a>"), "line 1, column 6: not well-formed (invalid token)");
    EXPECT_EQ(Refusal("<a b='1' b='2'/>"), "line 1, column 10: duplicate attribute");
    EXPECT_EQ(Refusal("<a b='<'/>"), "line 1, column 7: not well-formed (invalid token)");
    EXPECT_EQ(Refusal("<a><b c='&x;'/></a>"), "line 1, column 4: undefined entity");
    EXPECT_EQ(Refusal(" <?xml version='1.0'?><a/>"),
              "line 1, column 2: XML or text declaration not at start of entity");
    EXPECT_EQ(Refusal("<?xml version='1.0' colour='red'?><a/>"),
              "line 1, column 21: XML declaration not well-formed");
    EXPECT_EQ(Refusal("<a/><!DOCTYPE a>"), "line 1, column 5: junk after document element");
    EXPECT_EQ(Refusal("<!DOCTYPE a><!DOCTYPE a><a/>"), "line 1, column 13: syntax error");
    EXPECT_EQ(Refusal("<a><!-- a -- b --></a>"), "line 1, column 13: not well-formed (invalid token)");
}

TEST_F(MarkupTreeTest, RefusesReferencesThatAreNone) {
    for (const char* reference :
         {"&", "& ", "&;", "&x;", "&amp", "&AMP;", "&#;", "&#x;", "&#0;", "&#x1F;", "&#xD800;", "&#x110000;",
          "&#99999999999;", "&#-1;", "&#65", "&#xFFFE;", "&#X41;"}) {
        EXPECT_THAT(Refusal("<a>" + std::string(reference) + "</a>"),
                    testing::ContainsRegex("^line 1, column [4-8]: (undefined entity|not well-formed .*|"
                                           "reference to invalid character number)$"))
            << reference;
    }
}

TEST_F(MarkupTreeTest, RefusesEveryOtherMalformedDocument) {
    for (const char* text : {"<",
                             "<a",
                             "<a b",
                             "<a b=",
                             "<a b=1/>",
                             "<a b='1/>",
                             "<a></a",
                             "</a>",
                             "<a></a></a>",
                             "<!",
                             "<!-- x",
                             "<a><![CDATA[x</a>",
                             "<?xml",
                             "<?x",
                             "<a><!DOCTYPE a></a>",
                             "<!DOCTYPE a",
                             "<1/>",
                             "<a/><",
                             "< a/>",
                             "<a><b></a></b>"}) {
        EXPECT_THAT(Refusal(text), testing::StartsWith("line 1, column ")) << text;
    }
}

TEST_F(MarkupTreeTest, RefusesWhatIsNotInItsEncoding) {
    const std::string invalid = "not well-formed (invalid token)";
    EXPECT_EQ(Refusal("<a>\n\xff</a>"), "line 2, column 1: " + invalid);
    EXPECT_EQ(Refusal("<a>\xc3</a>"), "line 1, column 4: " + invalid);
    EXPECT_EQ(Refusal(std::string_view("<a>\0</a>", 8)), "line 1, column 4: " + invalid);
    EXPECT_EQ(Refusal("<a>\x01</a>"), "line 1, column 4: " + invalid);
    EXPECT_EQ(Refusal("<a>\uFFFE</a>"), "line 1, column 4: " + invalid);
    EXPECT_EQ(Refusal("<a>\xed\xa0\x80</a>"), "line 1, column 4: " + invalid) << "half of a pair";
    EXPECT_EQ(Refusal("<?xml version='1.0' encoding='US-ASCII'?><a>\u00fc</a>"),
              "line 1, column 45: " + invalid);
    EXPECT_EQ(ShapeOf("<a>\ufffd\u007f</a>"), "a('\ufffd\u007f')");
}

TEST_F(MarkupTreeTest, ReadsEachEncodingByItsNames) {
    for (const char* name : {"UTF-8", "utf-8", "UTF8"}) {
        EXPECT_EQ(
            ShapeOf("<?xml version='1.0' encoding='" + std::string(name) + "'?><a>\u20ac\U0001F600</a>"),
            "a('\u20ac\U0001F600')")
            << name;
    }
    for (const char* name : {"US-ASCII", "us-ascii", "ASCII", "ANSI_X3.4-1968", "ISO646-US"}) {
        EXPECT_EQ(ShapeOf("<?xml version='1.0' encoding='" + std::string(name) + "'?><a>x&#xFC;</a>"),
                  "a('x\u00fc')")
            << name;
        Refusal("<?xml version='1.0' encoding='" + std::string(name) + "'?><a>\xfc</a>");
    }
    for (const char* name : {"ISO-8859-1", "iso-8859-1", "ISO8859-1", "ISO_8859-1", "latin1", "LATIN-1", "L1",
                             "CP819", "IBM819"}) {
        EXPECT_EQ(ShapeOf("<?xml version='1.0' encoding='" + std::string(name) + "'?><a>M\xfcller \xff</a>"),
                  "a('M\u00fcller \u00ff')")
            << name;
    }
}

TEST_F(MarkupTreeTest, ReadsUtf16WithAMark) {
    const auto encode = [](std::u16string_view text, bool bigEndian) {
        std::string bytes;
        for (const char16_t unit : text) {
            const char high = static_cast<char>(unit >> 8U);
            const char low = static_cast<char>(unit & 0xFFU);
            bytes += bigEndian ? high : low;
            bytes += bigEndian ? low : high;
        }
        return bytes;
    };
    for (const bool bigEndian : {false, true}) {
        EXPECT_EQ(ShapeOf(encode(u"\uFEFF<a>\u20ac\U0001F600</a>", bigEndian)), "a('\u20ac\U0001F600')");
        for (const char16_t* name : {u"UTF-16", u"utf-16", u"UTF16"}) {
            const std::u16string declared =
                u"\uFEFF<?xml version='1.0' encoding='" + std::u16string(name) + u"'?><a/>";
            EXPECT_EQ(ShapeOf(encode(declared, bigEndian)), "a()");
        }
        EXPECT_EQ(Refusal(encode(u"<a/>", bigEndian)), "line 1, column 1: UTF-16 without a byte order mark");
        EXPECT_EQ(Refusal(encode(u"\uFEFF<a>\n" + std::u16string(1, 0xD800) + u"</a>", bigEndian)),
                  "line 2, column 1: not well-formed (invalid token)");
        EXPECT_EQ(
            Refusal(encode(u"\uFEFF<?xml version='1.0' encoding='UTF-8'?><a/>", bigEndian)),
            std::string(
                "line 1, column 1: the encoding UTF-8 is declared, but the byte order mark is that of ") +
                (bigEndian ? "UTF-16BE" : "UTF-16LE"));
    }
}

TEST_F(MarkupTreeTest, RefusesAnyOtherEncodingByItsName) {
    const auto declared = [](const std::string& name) {
        return "<?xml version='1.0' encoding='" + name + "'?>\n<a/>";
    };
    for (const char* name : {"windows-1252", "ISO-8859-15", "UTF-7", "UTF-32", "x"}) {
        EXPECT_EQ(Refusal(declared(name)),
                  "line 1, column 1: the encoding " + std::string(name) + " is not supported");
    }
    EXPECT_EQ(Refusal(declared("")), "line 1, column 31: XML declaration not well-formed");
    EXPECT_EQ(Refusal(declared("UTF-16")),
              "line 1, column 31: encoding specified in XML declaration is incorrect");
    EXPECT_EQ(Refusal("\xEF\xBB\xBF" + declared("latin1")),
              "line 1, column 1: the encoding latin1 is declared, but the byte order mark is that of UTF-8");
}

TEST_F(MarkupTreeTest, RefusesADeclaredEntity) {
    EXPECT_EQ(Refusal("<!DOCTYPE a [\n<!ENTITY x 'y'>]><a>&x;</a>"),
              "line 2, column 12: an entity is declared");
    EXPECT_EQ(Refusal("<!DOCTYPE a [<!ENTITY % p SYSTEM 'file:///etc/passwd'> %p;]><a/>"),
              "line 1, column 54: an entity is declared");
    EXPECT_EQ(Refusal("<!DOCTYPE a SYSTEM 'x.dtd'><a>&x;</a>"), "line 1, column 31: undefined entity");
}

TEST_F(MarkupTreeTest, RefusesADocumentThatIsNestedTooDeep) {
    EXPECT_TRUE(Parse(Nested(MarkupTree::kMaxDepth)));
    EXPECT_EQ(Refusal(Nested(MarkupTree::kMaxDepth + 1)), "line 1, column 769: nested too deep");
}

TEST_F(MarkupTreeTest, ADocumentOfAnyDepthCostsNoStack) {
    EXPECT_EQ(Refusal(Nested(200000)), "line 1, column 769: nested too deep");
    std::string open;
    for (int i = 0; i < 200'000; ++i) {
        open += "<a>";
    }
    EXPECT_EQ(Refusal(open), "line 1, column 769: nested too deep");
}

TEST_F(MarkupTreeTest, RefusesATextThatIsTooLarge) {
    const std::string most = "<a>" + std::string(MarkupTree::kMaxFileBytes - 7, 'x') + "</a>";
    EXPECT_TRUE(Parse(most));
    EXPECT_EQ(Refusal(most + "\n"), "Larger than 4194304 bytes");
}

TEST_F(MarkupTreeTest, ReadsAFileInPlaceOfWhatItHeld) {
    const TempDirectory directory;
    directory.Write("x.xml", "<b>1</b>");
    ASSERT_TRUE(Parse("<a>1</a>"));
    EXPECT_TRUE(tree_.ParseFile(directory.At("x.xml")));
    EXPECT_EQ(Shape(*tree_.GetRootNode()), "b('1')");
    EXPECT_FALSE(tree_.ParseFile(directory.At("missing.xml")));
    EXPECT_EQ(tree_.GetRootNode(), nullptr);
}

TEST_F(MarkupTreeTest, SaysWhyAFileIsRefused) {
    const TempDirectory directory;
    directory.Write("broken.xml", "<a>\n</b>");
    directory.Write("large.xml", "<a>" + std::string(MarkupTree::kMaxFileBytes, 'x') + "</a>");
    directory.MakeDirectory("directory.xml");
    ASSERT_EQ(mkfifo(directory.At("pipe.xml").GetString(), 0600), 0);
    const std::string start = "warning Host MarkupTree::ParseFile: " + directory.Path().string() + "/";
    for (const char* name : {"broken.xml", "large.xml", "directory.xml", "pipe.xml", "missing.xml"}) {
        EXPECT_FALSE(tree_.ParseFile(directory.At(name)));
    }
    EXPECT_THAT(log_.Said(),
                ElementsAre(start + "broken.xml: line 2, column 3: mismatched tag",
                            start + "large.xml: Larger than 4194304 bytes",
                            start + "directory.xml: Is a directory", start + "pipe.xml: Not a regular file",
                            start + "missing.xml: No such file or directory"));
}

TEST_F(MarkupTreeTest, FindsNothingInAnEmptyTree) {
    EXPECT_EQ(tree_.GetRootNode(), nullptr);
    EXPECT_EQ(Fetch("a"), nullptr);
    EXPECT_EQ(tree_.FetchNode({}), nullptr);
}

TEST_F(MarkupTreeTest, FindsElementsByThePathFromTheRoot) {
    ASSERT_TRUE(Parse("<a>t<b i='0'/><c><d>in c</d></c><b><d>in b</d></b></a>"));
    EXPECT_EQ(Fetch("a"), tree_.GetRootNode());
    EXPECT_EQ(Fetch("a@0"), tree_.GetRootNode());
    EXPECT_EQ(Fetch("a@1"), nullptr);
    EXPECT_EQ(Fetch("A"), nullptr);
    EXPECT_EQ(Fetch("b"), nullptr);
    EXPECT_EQ(tree_.FetchNode({}), nullptr);
    EXPECT_EQ(FirstText("a/c/d"), "in c");
    EXPECT_EQ(FirstText("a/b@1/d"), "in b");
    EXPECT_EQ(Fetch("a/b/d"), nullptr) << "a name without an index is the first";
    EXPECT_EQ(Fetch("a/x"), nullptr);
    EXPECT_EQ(Fetch("a/c/d/e"), nullptr);
}

TEST_F(MarkupTreeTest, AnIndexIsADecimalNumber) {
    ASSERT_TRUE(Parse("<a><b>0</b><b>1</b></a>"));
    EXPECT_EQ(FirstText("a/b@01"), "1");
    for (const char* path : {"a/b@", "a/b@x", "a/b@-1", "a/b@+1", "a/b@1x", "a/b@0x1", "a/b@4294967296",
                             "a/b@4294967295", "a/@0", "a/b@0@0"}) {
        EXPECT_EQ(Fetch(path), nullptr) << path;
    }
}

TEST_F(MarkupTreeTest, FindsEachIndexInWhateverOrderItIsAskedFor) {
    std::string text = "<a>";
    for (int i = 0; i < 50; ++i) {
        text += "<x/><b><c>" + std::to_string(i) + "</c></b>text";
    }
    ASSERT_TRUE(Parse(text + "</a>"));
    const auto found = [this](int i) { return FirstText(LumString("a/b@" + std::to_string(i) + "/c")); };
    for (const int i : {0, 1, 2, 2, 5, 4, 49, 0, 48, 49, 49, 3}) {
        EXPECT_EQ(found(i), std::to_string(i));
    }
    for (const int i : {7, 8, 8, 2}) {
        EXPECT_NE(Fetch("a/x@3"), nullptr) << "another name between two steps";
        EXPECT_EQ(found(i), std::to_string(i));
    }
    EXPECT_EQ(found(50), "(none)");
    EXPECT_EQ(found(49), "49");
}

TEST_F(MarkupTreeTest, ForgetsItsPlaceWithTheDocument) {
    // The nodes of one document are likely to lie where those of the document before lay.
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(Parse("<a><b>0</b><b>1</b><b>2</b><c/></a>"));
        EXPECT_EQ(FirstText("a/b@2"), "2");
        ASSERT_TRUE(Parse("<a><b>0</b><c/><b>1</b><b>2</b></a>"));
        EXPECT_EQ(FirstText("a/b@2"), "2");
    }
}

TEST_F(MarkupTreeTest, FindsEveryIndexOfALongList) {
    constexpr int kCount = 5'000;
    std::string text = "<a><s>";
    for (int i = 0; i < kCount; ++i) {
        text += "<b>x</b>";
    }
    ASSERT_TRUE(Parse(text + "</s></a>"));
    int i = 0;
    while (Fetch(LumString("a/s/b@" + std::to_string(i))) != nullptr) {
        ++i;
    }
    EXPECT_EQ(i, kCount);
}
