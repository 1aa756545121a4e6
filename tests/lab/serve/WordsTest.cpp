#include "lab/serve/Exchange.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/PlayOrder.h"
#include "lab/serve/Root.h"
#include "lab/serve/Token.h"
#include "tests/support/Files.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>

using namespace lab::serve;

namespace {

// Problem and cure with which a play is refused.
std::string WordsOf(const std::string& body) {
    try {
        ReadPlayOrder(body);
        return "taken";
    } catch (const HttpFailure& failure) {
        return failure.Problem() + " " + failure.Cure();
    }
}

} // namespace

// Clients send objects; tables are those of a plan.
TEST(WordsTest, AClientIsToldOfObjects) {
    EXPECT_EQ(WordsOf(R"({"material":"a","map":{"X":"Y"}})"),
              "is an object. It takes an object {\"SIGNAL\": \"LEAD\"} with the leads I, II, V1 to "
              "V6 and none.");
    EXPECT_EQ(WordsOf(R"({"material":"a","gain":"x"})"),
              "is the text \"x\". It takes a number from -1000 to 1000, or an object {\"LEAD\": "
              "NUMBER} with the leads I, II, V1 to V6.");
}

TEST(WordsTest, AClientsOwnTextIsQuotedAsItIs) {
    const std::string text = "a table " + std::string(100000, 'A') + " = B";
    EXPECT_EQ(WordsOf(R"({"material":"a","start":")" + text + "\"}"),
              "is the text \"" + text + "\". It takes a number from 0 to 1000000.");
}

TEST(WordsTest, AnAddressIsTooLongRatherThanNoHttp) {
    const Exchange exchange([](const HttpRequest&) { return HttpAnswer(); });
    const std::string answer =
        exchange.Run({"GET /" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n", "", "", {}}).bytes;
    EXPECT_EQ(answer.substr(0, 12), "HTTP/1.1 414");
    const auto error =
        nlohmann::json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).at("error");
    EXPECT_EQ(error.at("problem"), "its address is too long.");
}

// Only what lies outside is said to.
TEST(WordsTest, APathThatCannotBeFollowedIsNotOutside) {
    const Scratch folder;
    std::filesystem::create_symlink("there", folder.Path() + "/here");
    std::filesystem::create_symlink("here", folder.Path() + "/there");
    const Root root(folder.Path());
    const std::string longName(300, 'x');
    for (const auto& [name, reason] : {std::pair<std::string, std::string>{longName, "too long"},
                                       {"here", "Too many levels of symbolic links"}}) {
        try {
            root.Resolve(name);
            ADD_FAILURE() << name;
        } catch (const lab::Failure& failure) {
            EXPECT_EQ(HttpStatusOf(failure), 422);
            EXPECT_EQ(failure.Where(), name);
            EXPECT_NE(failure.Problem().find(reason), std::string::npos) << failure.Problem();
        }
    }
}

TEST(WordsTest, ATokenIsWhatABrowserCanSend) {
    const Scratch folder;
    const std::string path = folder.Write("token", "!secret~\n");
    ::chmod(path.c_str(), 0600);
    EXPECT_TRUE(Token(path).IsIn("Bearer !secret~"));
    for (const char* other : {"gr\u00fcn", "two words", "a\tb"}) {
        folder.Write("token", other);
        EXPECT_THROW(Token{path}, lab::Failure) << other;
    }
}
