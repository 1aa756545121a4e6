// A run's JUnit file checked against the rules of the schema that Jenkins uses, written down here
// independently.
#include "lab/plan/Run.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

using namespace lab;

namespace {

struct Element {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<Element> children;
    std::string text;
};

// Reads XML without declarations, and fails where it is not well-formed.
class XmlReader {
  public:
    explicit XmlReader(const std::string& text) : m_text(text) {}

    Element Read() {
        for (const char c : m_text) {
            Require(static_cast<unsigned char>(c) >= 0x20 || std::strchr("\t\n\r", c) != nullptr,
                    "a control character");
        }
        Require(Takes("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"), "no declaration");
        TakeSpace();
        Element root = ReadElement();
        TakeSpace();
        Require(m_at == m_text.size(), "something after the end");
        return root;
    }

  private:
    void Require(bool isRight, const std::string& what) const {
        if (!isRight) {
            throw std::runtime_error(what + " at " + m_text.substr(m_at, 40));
        }
    }

    bool Takes(const std::string& word) {
        const bool isThere = m_text.compare(m_at, word.size(), word) == 0;
        m_at += isThere ? word.size() : 0;
        return isThere;
    }

    void TakeSpace() { m_at = std::min(m_text.find_first_not_of(" \n\r\t", m_at), m_text.size()); }

    std::string TakeName() {
        const std::size_t begin = m_at;
        m_at = m_text.find_first_of(" \n/>=", m_at);
        Require(m_at != std::string::npos && m_at > begin, "no name");
        return m_text.substr(begin, m_at - begin);
    }

    // Text up to `end`, with its references resolved.
    std::string TakeText(char end) {
        static const std::map<std::string, std::string> kNamed = {
            {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}, {"&quot;", "\""}, {"&apos;", "'"}};
        std::string text;
        while (m_at < m_text.size() && m_text[m_at] != end) {
            Require(m_text[m_at] != '<', "a bare <");
            if (m_text[m_at] != '&') {
                text += m_text[m_at++];
                continue;
            }
            const std::string name = m_text.substr(m_at, m_text.find(';', m_at) + 1 - m_at);
            Require(kNamed.count(name) == 1 || name.rfind("&#", 0) == 0, "a bare &");
            text += kNamed.count(name) == 1 ? kNamed.at(name) : name;
            m_at += name.size();
        }
        return text;
    }

    Element ReadElement() {
        Require(Takes("<"), "no element");
        Element element;
        element.name = TakeName();
        for (TakeSpace(); !Takes("/>"); TakeSpace()) {
            if (Takes(">")) {
                ReadContent(element);
                return element;
            }
            const std::string name = TakeName();
            Require(Takes("=\""), "no value");
            Require(element.attributes.emplace(name, TakeText('"')).second, "an attribute twice");
            Require(Takes("\""), "no end of a value");
        }
        return element;
    }

    void ReadContent(Element& element) {
        for (;;) {
            element.text += TakeText('<');
            if (Takes("</")) {
                Require(TakeName() == element.name && Takes(">"), "another end");
                return;
            }
            element.children.push_back(ReadElement());
        }
    }

    const std::string& m_text;
    std::size_t m_at = 0;
};

struct Rule {
    std::set<std::string> required; // attributes
    std::set<std::string> optional;
    std::set<std::string> children; // in any order and number
};

const std::map<std::string, Rule>& Rules() {
    static const std::map<std::string, Rule> kRules = {
        {"testsuites",
         {{}, {"name", "time", "tests", "failures", "disabled", "errors"}, {"testsuite"}}},
        {"testsuite",
         {{"name"},
          {"tests", "failures", "errors", "group", "time", "skipped", "timestamp", "hostname", "id",
           "package", "file", "log", "url", "version"},
          {"testsuite", "properties", "testcase", "system-out", "system-err"}}},
        {"properties", {{}, {}, {"property"}}},
        {"property", {{"name", "value"}, {}, {}}},
        {"testcase",
         {{"name"},
          {"assertions", "time", "classname", "status", "class", "file", "line", "group", "url"},
          {"skipped", "error", "failure", "system-out", "system-err", "properties"}}},
        {"skipped", {{}, {"message", "type"}, {}}},
        {"error", {{}, {"message", "type"}, {}}},
        {"failure", {{}, {"message", "type"}, {}}},
        {"system-out", {{}, {}, {}}},
        {"system-err", {{}, {}, {}}}};
    return kRules;
}

void ExpectTimes(const Element& element) {
    static const std::regex kTime(R"((([0-9]{0,3},)*[0-9]{3}|[0-9]{0,3})*(\.[0-9]{0,3})?)");
    const auto time = element.attributes.find("time");
    if (time != element.attributes.end()) {
        EXPECT_TRUE(std::regex_match(time->second, kTime)) << time->second;
    }
}

void ExpectByTheRules(const Element& element) {
    ASSERT_EQ(Rules().count(element.name), 1U) << element.name;
    const Rule& rule = Rules().at(element.name);
    for (const std::string& name : rule.required) {
        EXPECT_EQ(element.attributes.count(name), 1U) << element.name << " without " << name;
    }
    for (const auto& [name, value] : element.attributes) {
        EXPECT_TRUE(rule.required.count(name) == 1 || rule.optional.count(name) == 1)
            << element.name << " with " << name;
    }
    ExpectTimes(element);
    for (const Element& child : element.children) {
        EXPECT_EQ(rule.children.count(child.name), 1U) << child.name << " in " << element.name;
        ExpectByTheRules(child);
    }
}

std::vector<Element> ChildrenOf(const Element& element, const std::string& name) {
    std::vector<Element> found;
    for (const Element& child : element.children) {
        if (child.name == name) {
            found.push_back(child);
        }
    }
    return found;
}

// "passed", or the name of the element that states the verdict.
std::string OutcomeOf(const Element& testCase) {
    std::string outcome;
    for (const char* name : {"skipped", "error", "failure"}) {
        for (const Element& verdict : ChildrenOf(testCase, name)) {
            outcome += verdict.name + ": " + verdict.attributes.at("message");
        }
    }
    return outcome.empty() ? "passed" : outcome;
}

} // namespace

TEST(JunitTest, IsAsJenkinsTakesIt) {
    const Scratch scratch;
    const std::string hook =
        scratch.Write("hook.sh", "#!/bin/sh\nprintf 'no \\001 \\377 <JSON> & ]]>'\n");
    ::chmod(hook.c_str(), 0755);
    RunRequest request;
    request.plan = scratch.Write(
        "p.toml", "title = \"\\\"A\\\" <day> & 'night'\"\n"
                  "[[step]]\nname = \"first\"\nwait = 0\n[[step]]\nname = \"good\"\nwait = 0.01\n"
                  "[[step]]\nname = \"bad\"\nask = \"<How> & much?\"\nmax = 1\n"
                  "[[step]]\nname = \"broken\"\nhook = [\"./hook.sh\"]\n");
    request.answers = scratch.Write("a.toml", "bad = 2\n");
    request.output = scratch / "out";
    request.from = "good";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), 5);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();

    const std::string text = ReadFile(scratch / "out/junit.xml");
    const Element root = XmlReader(text).Read();
    EXPECT_EQ(root.name, "testsuites");
    ExpectByTheRules(root);
    ASSERT_EQ(root.children.size(), 1U);
    const Element& suite = root.children[0];
    EXPECT_EQ(suite.attributes.at("name"), "\"A\" <day> & 'night'");
    EXPECT_EQ(suite.attributes.at("tests"), "4");
    EXPECT_EQ(suite.attributes.at("failures"), "1");
    EXPECT_EQ(suite.attributes.at("errors"), "1");
    EXPECT_EQ(suite.attributes.at("skipped"), "1");
    const std::vector<Element> cases = ChildrenOf(suite, "testcase");
    ASSERT_EQ(cases.size(), 4U);
    EXPECT_EQ(cases[0].attributes.at("name"), "first");
    EXPECT_EQ(OutcomeOf(cases[0]).rfind("skipped: ", 0), 0U) << text;
    EXPECT_EQ(OutcomeOf(cases[1]), "passed");
    EXPECT_EQ(OutcomeOf(cases[2]), "failure: the answer is not one that passes.");
    EXPECT_EQ(OutcomeOf(cases[3]).rfind("error: ", 0), 0U) << text;
}
