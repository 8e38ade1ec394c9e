#pragma once

#include <algorithm>
#include <cctype>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace lmfg {

/** A table for people: columns as wide as their widest cell, numbers to the right. */
class Table {
  public:
    Table(std::string title, std::vector<std::string> header)
        : mTitle(std::move(title)), mRows{std::move(header)} {}

    /** One cell for each column. */
    void add(std::vector<std::string> row) { mRows.push_back(std::move(row)); }

    /** Prints nothing when there are no rows. */
    void print(std::ostream& out) const {
        if (mRows.size() == 1) return;
        out << "\n" << mTitle << "\n";
        for (const auto& row : mRows) {
            std::string line;
            for (size_t column = 0; column < row.size(); ++column) {
                const std::string fill(width(column) - row[column].size(), ' ');
                line += "  " + (isNumeric(column) ? fill + row[column] : row[column] + fill);
            }
            out << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
        }
    }

  private:
    size_t width(size_t column) const {
        size_t width = 0;
        for (const auto& row : mRows)
            width = std::max(width, row[column].size());
        return width;
    }

    bool isNumeric(size_t column) const {
        return std::all_of(mRows.begin() + 1, mRows.end(), [column](const auto& row) {
            return !row[column].empty() &&
                   std::isdigit(static_cast<unsigned char>(row[column].back())) != 0 &&
                   row[column].find_first_not_of("-0123456789") == std::string::npos;
        });
    }

    std::string mTitle;
    std::vector<std::vector<std::string>> mRows;
};

}  // namespace lmfg
