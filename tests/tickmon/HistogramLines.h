// Checks of the histogram text layout shared by the tests.
#pragma once

#include <cctype>
#include <string>

/// True for a bucket line of cyclictest's -h layout: "%06d %06lu".
inline bool isBucketLine(const std::string& line) {
    if (line.size() != 13 || line[6] != ' ') {
        return false;
    }
    for (size_t i = 0; i < line.size(); ++i) {
        if (i != 6 && std::isdigit(static_cast<unsigned char>(line[i])) == 0) {
            return false;
        }
    }
    return true;
}
