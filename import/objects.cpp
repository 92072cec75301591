// "objects": object files and archives into which clang -fprofile-use wrote how often functions call each other
// (llvm-readobj --cg-profile shows it). The counts come from an earlier, instrumented run of the program. Objects without
// such counts, as of a source that no run came to, may be among them.
#include "import/profile_format.h"
#include "support/object_magic.h"

bool is_objects(std::string_view head) {
    return starts_as_object(head) || is_llvm_bitcode(head);
}

void read_objects(profile_input& profile, call_table& calls) {
    std::string bytes = profile.whole();
    bool has_calls = false;
    bool is_linked = false;
    visit_elf_objects(bytes, profile.name(), [&](const elf_object& object) {
        is_linked |= object.purpose() != elf_purpose::object;
        for (const elf_call& call : object.call_graph_profile()) {
            const call_table::function from = calls.named(call.caller, name_form::linker);
            calls.add_call(from, calls.named(call.callee, name_form::linker), call.count);
            has_calls = true;
        }
    });
    if (!has_calls) {
        calls.note_why_empty(is_linked ? "a program, not a profile: name it with --binary, and a profile of it"
                                       : "no call graph profile: compile with clang -fprofile-use, without -flto");
    }
}
