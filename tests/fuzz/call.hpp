// One fuzzed call: decodes an export's arguments from the input by kind, places every buffer in
// guarded memory, prepares specs and work buffers through the family's own size queries and
// Init calls, runs the export and checks what it did.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "guarded.hpp"
#include "kinds.hpp"
#include "table.hpp"

namespace keli_fuzz {

// Memory and values one input shares between the target export and the queries and Init calls
// that prepare its spec and buffers.
struct Context {
    Context(const uint8_t* data, size_t size) : in(data, size), noise(in.u32()) {}
    Input in;
    Noise noise;
    std::map<std::string, Slot> values;  // decoded arguments by canonical name and type
    std::vector<std::unique_ptr<Guarded>> memory;
    std::vector<std::string> trail;      // the calls made so far, for a finding's report
    int depth = 0;
};

// A buffer the call may write: compared with its snapshot after the call.
struct Written {
    Guarded* buffer;
    std::vector<unsigned char> before;
    // Image rows (for the check that nothing between or around them changes); rows == 0: none.
    int64_t origin = 0, step = 0, rows = 0, row_bytes = 0;
    const char* name;
    // An image or a spec: unchanged after an error. Small outputs are left out, as a few
    // families document outputs written with an error (a degenerate quad's corners).
    bool destination = false;
};

struct Outcome {
    KelStatus status = kelStatusOk;
    void* returned = nullptr;
};

class Call {
public:
    Call(Context& ctx, int export_index, const Export* parent);
    Outcome run();                 // a preparing call: no checks beyond the sanitizers'
    void run_checked();            // the target call: every check, a report and abort on a finding
    const Slot& slot(const char* name) const;
    int64_t output_value(const std::string& name) const;

private:
    void decode_scalars();
    bool from_parent_name(const std::string& n, Slot& s) const;
    void prepare_pointers();
    void image(int i, int step_index);
    void plain_pointer(int i);
    void place(int i, const std::vector<void*>& addresses, bool planar);
    void spec_pointer(int i);
    void queried_buffer(int i, const char* role);
    int64_t reach() const;
    int channels_for(const Param& p) const;
    int64_t query_size(const char* role, const Export* for_export);
    int pick_init(int i) const;
    Slot* shared(const Param& p);
    [[noreturn]] void report(const std::string& what) const;
    void describe(const char* headline) const;

    Context& ctx_;
    int index_;
    const Export& ex_;
    const Export* parent_;
    std::vector<Slot> slots_;
    std::vector<bool> done_;
    std::vector<Written> written_;
    std::vector<std::pair<Guarded*, std::vector<unsigned char>>> inputs_;
    std::vector<std::unique_ptr<Guarded>> outputs_;  // scalar outputs read after preparing calls
    std::map<std::string, Guarded*> output_by_name_;
    bool exact_region_ = true;  // no argument lets the export reach past its regions
};

// The exports the harness has called so far (for the run's summary).
void mark_reached(int export_index, KelStatus status);
void dump_reached(const char* path);
int find_export(const std::string& name);

}  // namespace keli_fuzz
