#include "ORDWELL/order_file.h"

#include "support/line_blocks.h"

bool read_order_file(const std::string& path, std::vector<std::string>& names, std::size_t& bad_line) {
    bad_line = 0;
    line_blocks blocks(path.c_str());
    std::size_t line_number = 0;
    for (std::string_view block = blocks.is_open() ? blocks.next() : std::string_view(); !block.empty();
         block = blocks.next()) {
        while (!block.empty()) {
            ++line_number;
            const std::string_view line = take_line(block);
            if (line.size() < order_line_start.size() + order_line_end.size() || !line.starts_with(order_line_start) ||
                !line.ends_with(order_line_end)) {
                bad_line = line_number;
                return false;
            }
            names.emplace_back(
                line.substr(order_line_start.size(), line.size() - order_line_start.size() - order_line_end.size()));
        }
    }
    errno = blocks.is_open() ? blocks.error() : errno;
    return blocks.is_open() && blocks.error() == 0;
}
