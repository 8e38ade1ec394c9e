#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/programs/ProgramsTest.h"

namespace {

/** The definition of an interface or record, without comments, annotations and directions. */
std::string definition(const std::string& name) {
    std::ifstream file(std::string(INTERFACE_FOLDER) + "/" + name + ".aidl");
    std::string text(std::istreambuf_iterator<char>(file), {});
    text = std::regex_replace(text, std::regex(R"(/\*[^]*?\*/|//[^\n]*|@\w+|\bin )"), "");
    text = std::regex_replace(text, std::regex(R"(\s+)"), " ");
    text = std::regex_replace(text, std::regex(R"(\( )"), "(");
    return text.substr(text.find('{'));
}

std::vector<std::string> statements(const std::string& name) {
    std::vector<std::string> found;
    std::istringstream text(definition(name).substr(1));
    for (std::string statement; std::getline(text, statement, ';');) {
        statement.erase(0, statement.find_first_not_of(' '));
        if (statement != "} " && statement != "}") found.push_back(statement);
    }
    return found;
}

class ListTest : public ProgramsTest {
  protected:
    /** The lines of the list that begin with the word, without it. */
    static std::vector<std::string> listed(const std::string& word) {
        static const Result result = velactl({"list"});
        EXPECT_EQ(result.code, 0);
        std::vector<std::string> lines;
        std::istringstream text(result.out);
        for (std::string line; std::getline(text, line);) {
            if (line.starts_with(word + " ")) lines.push_back(line.substr(word.size() + 1));
        }
        return lines;
    }
};

TEST_F(ListTest, NamesEveryOperationAsItIsDefined) {
    EXPECT_EQ(listed("vela"), statements("IVela"));
    EXPECT_EQ(listed("composer"), statements("IVelaComposerClient"));
}

TEST_F(ListTest, NamesEveryFieldAsItIsDefined) {
    const std::vector<std::string> records = listed("record");
    EXPECT_EQ(records.size(), 12u);
    for (const std::string& record : records) {
        const std::string name = record.substr(0, record.find(' '));
        std::string expected;
        for (const std::string& field : statements(name)) {
            expected += (expected.empty() ? "" : ", ") + field;
        }
        EXPECT_EQ(record, name + " {" + expected + "}");
    }
}

}  // namespace
