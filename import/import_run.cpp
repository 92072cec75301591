#include "import/import_run.h"

#include "binary/elf_file.h"
#include "binary/object_list.h"
#include "import/comparison.h"
#include "import/first_run.h"
#include "import/profile_format.h"
#include "import/refused.h"
#include "import/weighed.h"
#include "support/failure.h"
#include "support/real_path.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The names under which profilers may know a binary: by its name, and by what a symbolic link stands for.
std::vector<std::string> object_names(const std::string& object, const std::string& binary) {
    if (!object.empty()) {
        return {std::string(base_name(object))};
    }
    if (binary.empty()) {
        return {};
    }
    std::vector<std::string> names = {std::string(base_name(binary))};
    if (const std::string real = real_path(binary); !real.empty() && base_name(real) != names.front()) {
        names.emplace_back(base_name(real));
    }
    return names;
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return all;
}

bool is_folder(const std::string& output) {
    std::error_code ignored;
    return output.ends_with('/') || (!output.empty() && std::filesystem::is_directory(output, ignored));
}

// Where a file goes: into a folder under the binary's name.
std::string file_in(const std::string& output, const std::string& binary) {
    return is_folder(output) && !binary.empty()
               ? output + (output.ends_with('/') ? "" : "/") + std::string(base_name(binary)) + ".csv"
               : output;
}

/// The files of one binary, or of all functions where there is none.
class binary_import {
public:
    binary_import(const import_settings& chosen, const std::string& binary)
        : chosen_(chosen), binary_(binary.empty() ? nullptr : std::make_unique<function_table>(binary)),
          objects_(object_names(chosen.object, binary)), calls_(binary_.get(), objects_) {
        if (!chosen.first_run.empty()) {
            calls_.keep_first_run();
        }
    }

    void read(const std::string& name) {
        profile_input profile(name, !chosen_.is_quiet && isatty(STDERR_FILENO) != 0, calls_.keeps_first_run());
        const profile_format& format = format_of(profile);
        if (!chosen_.event.empty() && !format.has_events) {
            throw failure(profile.name(),
                          std::string("the format ") + format.name + " has no events: leave --event out");
        }
        if (calls_.keeps_first_run() && !format.has_time) {
            throw failure(profile.name(), std::string("the format ") + format.name +
                                              " does not tell when functions ran: " + how_to_record_time);
        }
        profile.set_event(chosen_.event);
        calls_.begin_profile();
        format.read(profile, calls_);
        calls_.end_profile(profile.name());
    }

    void expect_functions() const {
        if (calls_.is_empty()) {
            throw nothing_kept(calls_.summarise());
        }
    }

    // Writes what is wanted of the calls and the weighed rows, up to putting them in place.
    void write(std::vector<std::unique_ptr<output_file>>& files) const {
        if (!chosen_.output.empty() || (chosen_.weighed.empty() && chosen_.first_run.empty())) {
            files.push_back(std::make_unique<output_file>(path(chosen_.output)));
            calls_.write(*files.back());
        }
        if (!chosen_.weighed.empty()) {
            function_sizes sizes;
            if (binary_ != nullptr) {
                sizes.add(binary_->symbols());
            }
            for (const std::string& objects : chosen_.objects) {
                sizes.add_objects(objects);
            }
            files.push_back(std::make_unique<output_file>(path(chosen_.weighed)));
            write_weighed(calls_, sizes, *files.back());
        }
        if (!chosen_.first_run.empty()) {
            files.push_back(std::make_unique<output_file>(chosen_.first_run));
            calls_.write_first_run(*files.back());
        }
    }

    // Appends what the user hears of the calls.
    void report(std::vector<std::string>& lines, const call_comparison* old) const {
        const std::string about = chosen_.binaries.size() > 1 ? binary_->path() + ": " : "";
        const auto number = [](std::uint64_t n) { return std::to_string(n); };
        lines.insert(lines.end(), calls_.told().begin(), calls_.told().end());
        const call_table::summary done = calls_.summarise();
        lines.push_back(about + "kept " + number(done.functions) + " functions and " + number(done.calls) + " calls");
        const char* const reasons[] = {"with a function outside the binary", "with an unknown symbol",
                                       "with a demangled name", "with a name that no row can hold"};
        for (std::size_t reason = 0; reason < done.left_out_calls.size(); ++reason) {
            if (done.left_out_calls[reason] != 0) {
                lines.push_back(about + "left out " + number(done.left_out_calls[reason]) + " calls " +
                                reasons[reason]);
            }
        }
        if (!chosen_.first_run.empty() && calls_.has_several_objects()) {
            lines.emplace_back("the order has functions of several objects: keep the program's with --binary");
        }
        if (done.unholdable_names != 0) {
            lines.push_back(about + "left out " + number(done.unholdable_names) +
                            " names that are empty, hold a comma or a line feed, or start with a quote");
        }
        if (done.divisor_bits != 0) {
            lines.push_back(about + "divided all counts by " + number(std::uint64_t{1} << done.divisor_bits) +
                            ", so that the largest fits 32 bits");
        }
        if (old != nullptr) {
            lines.push_back(old->compare(calls_));
        }
    }

private:
    const profile_format& format_of(const profile_input& profile) const {
        const std::string_view why = chosen_.format.empty() ? why_refused(profile.begun()) : std::string_view();
        if (!why.empty()) {
            throw failure(profile.name(), std::string(why));
        }
        if (profile.head().empty()) {
            throw failure(profile.name(), "empty");
        }
        for (const profile_format& format : profile_formats()) {
            if (chosen_.format.empty() ? format.recognises(profile.head()) : format.name == chosen_.format) {
                return format;
            }
        }
        throw failure(profile.name(), "of no known format: name it with --format");
    }

    std::string path(const std::string& output) const {
        return file_in(output, binary_ == nullptr ? "" : binary_->path());
    }

    // Why nothing is left, as far as can be told.
    failure nothing_kept(const call_table::summary& done) const {
        const std::string of_what = (binary_ == nullptr || chosen_.binaries.size() == 1 ? "" : binary_->path() + ": ") +
                                    joined(chosen_.profiles);
        if (!calls_.why_empty().empty() && done.left_out_calls == call_table::summary().left_out_calls) {
            return failure(of_what, calls_.why_empty());
        }
        std::string text = "no function was kept";
        if (!calls_.other_objects().empty()) {
            text += "; wanted are those of " + joined(objects_) + ", the profile has those of " +
                    joined(calls_.other_objects()) + ": name the object with --object";
        } else if (done.left_out_calls[0] != 0) {
            text +=
                "; none of the profile's is defined in " + (binary_ == nullptr ? joined(objects_) : binary_->path());
        } else if (done.left_out_calls[1] != 0) {
            text += "; the profiler had no symbols";
        } else {
            text += "; there are no calls in the profile";
        }
        return failure(of_what, text);
    }

    const import_settings& chosen_;
    std::unique_ptr<function_table> binary_;
    std::vector<std::string> objects_;
    call_table calls_;
};

// Every file that is read.
std::vector<std::string> inputs_of(const import_settings& chosen) {
    std::vector<std::string> inputs = chosen.profiles;
    inputs.insert(inputs.end(), chosen.binaries.begin(), chosen.binaries.end());
    inputs.push_back(chosen.compare);
    for (const std::string& objects : chosen.objects) {
        const std::vector<std::string> read = object_inputs(objects);
        inputs.insert(inputs.end(), read.begin(), read.end());
    }
    return inputs;
}

// Every file that is written.
std::vector<std::string> outputs_of(const import_settings& chosen) {
    std::vector<std::string> outputs = {chosen.first_run};
    for (const std::string& output : {chosen.output, chosen.weighed}) {
        if (!is_folder(output)) {
            outputs.push_back(output);
            continue;
        }
        for (const std::string& binary : chosen.binaries) {
            outputs.push_back(file_in(output, binary));
        }
    }
    return outputs;
}

// Of a stripped copy too, which is what many machines have.
int print_build_id(const std::string& binary) {
    std::string build_id;
    visit_elf_objects(binary, [&](const elf_object& object) {
        if (object.label() != binary || object.purpose() != elf_purpose::program) {
            throw failure(binary, "not a linked program or library, which have a build ID");
        }
        build_id = object.build_id();
    });
    if (build_id.empty()) {
        throw failure(binary, "no build ID: link with -Wl,--build-id");
    }
    output_file out("-");
    out.write(build_id + "\n");
    out.finish();
    return 0;
}

/// The folders that files go to: made when they are missing, and gone again unless the work is done.
class output_folders {
public:
    ~output_folders() {
        for (const std::string& folder : made_) {
            std::error_code ignored;
            std::filesystem::remove(folder, ignored);
        }
    }
    void make(const std::string& folder) {
        std::error_code error;
        if (folder.ends_with('/') && std::filesystem::create_directory(folder, error)) {
            made_.push_back(folder);
        }
        if (error) {
            throw failure(folder, "cannot be made: " + error.message());
        }
    }
    void keep() { made_.clear(); }

private:
    std::vector<std::string> made_;
};

// Ends with a message for a pipe, which can be read but once.
void expect_rereadable(const std::string& profile) {
    struct stat properties {};
    if (profile != "-" && stat(profile.c_str(), &properties) == 0 && S_ISFIFO(properties.st_mode)) {
        throw failure(profile, "a pipe, which cannot be read for each binary: give a file, or - for standard input");
    }
}

// Puts a temporary file in the place of standard input, so that it can be read for each binary.
void keep_standard_input() {
    const open_file copy = temporary_file();
    append_all(copy, {}, open_file(dup(STDIN_FILENO)), "standard input");
    if (dup2(copy.get(), STDIN_FILENO) < 0) {
        throw failure("standard input", "cannot be read for each binary");
    }
}

} // namespace

std::string contradiction(const import_settings& chosen) {
    const bool has_folder = is_folder(chosen.output) || is_folder(chosen.weighed);
    if (chosen.prints_build_id) {
        return chosen.binaries.size() != 1 || !chosen.profiles.empty() || !chosen.output.empty() ||
                       !chosen.weighed.empty() || !chosen.first_run.empty() || !chosen.compare.empty()
                   ? "--build-id takes one --binary and nothing else"
                   : "";
    }
    if (chosen.profiles.empty()) {
        return "PROFILE is required";
    }
    if (chosen.binaries.size() > 1) {
        if (!chosen.object.empty()) {
            return "--object goes with one --binary only";
        }
        if ((!chosen.output.empty() && !is_folder(chosen.output)) ||
            (!chosen.weighed.empty() && !is_folder(chosen.weighed)) || !has_folder) {
            return "several --binary need -o DIR/, a folder for their files";
        }
        if (!chosen.first_run.empty()) {
            return "--first-run goes with one --binary only";
        }
        if (!chosen.compare.empty()) {
            return "--compare goes with one --binary only";
        }
    }
    if (has_folder && chosen.binaries.empty()) {
        return "a folder for output needs --binary, after which its file is named";
    }
    return "";
}

int run_import(const CLI::App& command_line, const import_settings& chosen) {
    if (chosen.prints_build_id) {
        return print_build_id(chosen.binaries.front());
    }
    std::set<std::string_view> names;
    for (const std::string& binary : chosen.binaries) {
        if (!names.insert(base_name(binary)).second) {
            throw failure(binary, "another --binary has the same base name, by which their files are named");
        }
    }
    check_outputs(outputs_of(chosen), inputs_of(chosen));
    const auto old = chosen.compare.empty() ? nullptr : std::make_unique<call_comparison>(chosen.compare);
    std::vector<std::unique_ptr<binary_import>> imports;
    for (const std::string& binary : chosen.binaries.empty() ? std::vector<std::string>{""} : chosen.binaries) {
        imports.push_back(std::make_unique<binary_import>(chosen, binary));
    }
    if (imports.size() > 1) {
        std::for_each(chosen.profiles.begin(), chosen.profiles.end(), expect_rereadable);
    }
    if (imports.size() > 1 && std::count(chosen.profiles.begin(), chosen.profiles.end(), "-") != 0) {
        keep_standard_input();
    }
    for (const std::string& profile : chosen.profiles) {
        for (const auto& import : imports) {
            import->read(profile);
            lseek(STDIN_FILENO, 0, SEEK_SET); // for the next binary, where it is a file
        }
    }
    for (const auto& import : imports) {
        import->expect_functions();
    }
    std::vector<std::string> lines;
    output_folders folders;
    for (const std::string& output : {chosen.output, chosen.weighed}) {
        folders.make(output);
    }
    {
        std::vector<std::unique_ptr<output_file>> files;
        for (const auto& import : imports) {
            import->write(files);
        }
        std::vector<output_file*> together;
        together.reserve(files.size());
        for (const auto& file : files) {
            together.push_back(file.get());
        }
        for (const auto& import : imports) {
            import->report(lines, old.get());
        }
        finish_together(together); // from here on no memory is taken: what is in place stays
    }
    folders.keep();
    if (!chosen.is_quiet) {
        for (const std::string& line : lines) {
            say(command_line, line);
        }
    }
    return 0;
}
