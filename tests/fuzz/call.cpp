#include "call.hpp"

#include <x86intrin.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "keli.h"

namespace keli_fuzz {

namespace {

// One buffer never exceeds this: a region that would need more gets null image pointers, which
// every export must refuse before touching memory.
constexpr int64_t kMaxBytes = int64_t{64} << 20;
constexpr int64_t kMaxWork = int64_t{256} << 20;
// Elements of an array whose length no argument states (levels, tables, locations, outputs).
constexpr int64_t kLooseLength = 4200;
constexpr int kMaxPrepareDepth = 3;

std::string lower(std::string s)
{
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool is_record(const Param& p)
{
    return std::strncmp(p.type, "Keli", 4) == 0 && std::strcmp(p.type, "KeliBorderType") &&
           std::strcmp(p.type, "KeliMaskSize") && std::strcmp(p.type, "KeliAxis") &&
           std::strcmp(p.type, "KeliAlphaType") && std::strcmp(p.type, "KeliInterpolationType");
}

bool is_wide(const Param& p) { return ends_with(p.type, "L") || std::strcmp(p.type, "int64_t") == 0; }

const EnumValues* enum_of(const Param& p)
{
    for (int e = 0; e < kEnumCount; ++e)
        if (std::strcmp(kEnums[e].type, p.type) == 0) return &kEnums[e];
    return nullptr;
}

// Opaque or byte-typed state that an Init call fills: the spec kinds.
bool is_spec(const Param& p)
{
    std::string n = p.name;
    return p.depth == 1 && (ends_with(p.type, "Spec") || n == "pSpec" || n == "pState" || n == "pHOGSpec");
}

// Which buffer a size query's output sizes, from its name: pSpecSize, pSizeInit, pBufferSize...
const char* role_of_size(const Param& p)
{
    std::string n = lower(p.name);
    if (p.depth != 1 || p.is_const) return nullptr;
    if (std::strcmp(p.type, "int") && std::strcmp(p.type, "KelSizeL") && std::strcmp(p.type, "Kel64s")) return nullptr;
    if (has(n, "spec") || n == "psize") return "spec";
    if (has(n, "descriptor")) return "descriptor";
    if (has(n, "init")) return "init";
    if (has(n, "buf")) return "buffer";
    return nullptr;
}

const char* role_of_buffer(const Param& p)
{
    std::string n = p.name;
    if (p.depth != 1) return nullptr;
    if (n == "pBuffer") return "buffer";
    if (n == "pInitBuf" || n == "pMemInit") return "init";
    return nullptr;
}

// The step argument of an image pointer: pSrc1 -> src1Step, pxMap -> xMapStep.
int step_of(const Export& ex, const Param& p)
{
    std::string n = p.name;
    if (n.size() < 2 || n[0] != 'p') return -1;
    std::string want = n.substr(1);
    want[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(want[0])));
    std::string stem = want;
    want += "Step";
    for (size_t i = 0; i < ex.params.size(); ++i)
        if (want == ex.params[i].name && ex.params[i].depth == 0) return static_cast<int>(i);
    // An in-place image inside a larger one: pSrc with srcDstStep.
    for (size_t i = 0; i < ex.params.size(); ++i) {
        std::string q = ex.params[i].name;
        if (!ex.params[i].depth && q.rfind(stem, 0) == 0 && ends_with(q, "Step")) return static_cast<int>(i);
    }
    return -1;
}

// Layout tokens of the name (C1, C3, AC4, P3...): the first describes the sources, the last the
// destinations.
std::vector<std::string> layouts(const std::string& name)
{
    std::vector<std::string> out;
    size_t at = name.find('_');
    while (at != std::string::npos) {
        size_t end = name.find('_', at + 1);
        std::string tok = name.substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
        if (!tok.empty() && (tok[0] == 'C' || tok[0] == 'P' || tok[0] == 'A')) {
            for (size_t k = 0; k + 1 < tok.size(); ++k) {
                size_t s = k;
                if (tok[k] == 'A') ++k;
                if ((tok[k] == 'C' || tok[k] == 'P') && k + 1 < tok.size() && std::isdigit(static_cast<unsigned char>(tok[k + 1])))
                    out.push_back(tok.substr(s, k + 2 - s));
                else
                    k = s;
            }
        }
        at = end;
    }
    return out;
}

// The type tokens after the name's first underscore: "8u", "16s" of keliConvert_8u16s_C1R.
// The element types the name gives: the first part after an underscore that spells types
// (keliAdd_8u_C1R, keliLUT_Init_16u).
std::vector<int> type_tokens(const std::string& name)
{
    std::vector<int> out;
    for (size_t at = name.find('_'); at != std::string::npos && out.empty(); at = name.find('_', at + 1)) {
        std::string tok = name.substr(at + 1, name.find('_', at + 1) - at - 1);
        for (size_t k = 0; k < tok.size();) {
            size_t d = k;
            while (d < tok.size() && std::isdigit(static_cast<unsigned char>(tok[d]))) ++d;
            if (d == k || d >= tok.size()) break;
            size_t e = d + 1;
            if (e < tok.size() && tok[e] == 'c') ++e;
            int t = data_type_of(tok.substr(k, e - k));
            if (t) out.push_back(t);
            k = e;
        }
    }
    return out;
}

int max_channels(const std::string& name)
{
    int c = 1;
    for (auto& l : layouts(name)) c = std::max(c, l.back() - '0');
    return c;
}

std::string canonical(const Param& p)
{
    std::string n = p.name;
    // The region a query sizes for is the region the export runs on.
    if (n == "roiSize" || n == "dstRoiSize" || n == "dstSize") n = "roi";
    return n + ":" + p.type + (p.depth ? "*" : "");
}

int name_score(const std::string& a, const std::string& b)
{
    std::string x = a, y = b;
    for (auto* s : {&x, &y}) {
        size_t k = s->find("Init");
        if (k != std::string::npos) s->erase(k, 4);
    }
    size_t common = 0;
    while (common < x.size() && common < y.size() && x[common] == y[common]) ++common;
    int shared = 0;
    size_t at = 0;
    while (at < y.size()) {
        size_t end = y.find('_', at);
        std::string tok = y.substr(at, end == std::string::npos ? std::string::npos : end - at);
        if (!tok.empty() && x.find("_" + tok) != std::string::npos) ++shared;
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return static_cast<int>(common) + 10 * shared;
}

std::vector<unsigned char> g_reached, g_succeeded;

}  // namespace

int find_export(const std::string& name)
{
    for (int i = 0; i < kExportCount; ++i)
        if (name == kExports[i].name) return i;
    return -1;
}

void mark_reached(int i, KelStatus status)
{
    if (g_reached.empty()) g_reached.assign(kExportCount, 0), g_succeeded.assign(kExportCount, 0);
    g_reached[i] = 1;
    if (status >= 0) g_succeeded[i] = 1;
}

void dump_reached(const char* path)
{
    // Several processes (libFuzzer's fork mode) write in turn: merge with what is there.
    if (g_reached.empty()) g_reached.assign(kExportCount, 0), g_succeeded.assign(kExportCount, 0);
    if (FILE* old = std::fopen(path, "r")) {
        char name[128], state[16];
        while (std::fscanf(old, "%127s %15s", name, state) == 2) {
            int i = find_export(name);
            if (i < 0) continue;
            g_reached[i] = 1;
            if (!std::strcmp(state, "ok")) g_succeeded[i] = 1;
        }
        std::fclose(old);
    }
    FILE* f = std::fopen(path, "w");
    if (!f) return;
    std::fprintf(f, "exports %d\n", kExportCount);
    for (int i = 0; i < kExportCount && !g_reached.empty(); ++i)
        if (g_reached[i]) std::fprintf(f, "%s %s\n", kExports[i].name, g_succeeded[i] ? "ok" : "refused");
    std::fclose(f);
}

Call::Call(Context& ctx, int export_index, const Export* parent)
    : ctx_(ctx), index_(export_index), ex_(kExports[export_index]), parent_(parent),
      slots_(ex_.params.size()), done_(ex_.params.size(), false)
{
    for (auto& p : ex_.params) {
        std::string n = p.name;
        if (!std::strcmp(p.type, "KeliMaskSize") || is_spec(p) ||
            n == "maskSize" || n == "kernelSize" || n == "anchor" || n == "border" || n == "borderType" ||
            n == "dstOffset" || n == "dstRoiOffset" || n == "roiOffset" || n == "srcRoi" || n == "tplRoiSize" ||
            n == "blockSize" || n == "pxMap" || n == "pLocation" || n == "shape" || has(n, "BitOffset") ||
            n == "leftBorderWidth" || n == "topBorderHeight" || n == "orderX")
            exact_region_ = false;
    }
    // A fixed window in the name (Dilate3x3) reads around the region too.
    for (size_t k = 1; k + 1 < std::strlen(ex_.name); ++k)
        if (ex_.name[k] == 'x' && std::isdigit(static_cast<unsigned char>(ex_.name[k - 1])) &&
            std::isdigit(static_cast<unsigned char>(ex_.name[k + 1])))
            exact_region_ = false;
    // A work call sizes its buffers for its own element type and channels: the queries and
    // Init calls that prepare them take these rather than values of their own. So does an
    // Init named for a type (keliLUT_Init_16u): its query sizes the spec for that type.
    if (!parent_) {
        bool images = false;
        for (size_t i = 0; i < ex_.params.size(); ++i)
            images = images || (ex_.params[i].depth && step_of(ex_, ex_.params[i]) >= 0);
        auto types = type_tokens(ex_.name);
        if (!types.empty()) {
            auto seed = [&](const char* name, const char* type, int64_t v) {
                for (auto& p : ex_.params)
                    if (!std::strcmp(p.name, name)) return;
                Slot s;
                s.i = v;
                ctx_.values[std::string(name == std::string("dstSize") ? "roi" : name) + ":" + type] = s;
            };
            seed("dataType", "KelDataType", types.front());
            seed("srcType", "KelDataType", types.front());
            seed("dstType", "KelDataType", types.back());
            if (images) {
                seed("numChannels", "int", max_channels(ex_.name));
                seed("channels", "int", max_channels(ex_.name));
            }
        }
    }
    decode_scalars();
    prepare_pointers();
}

Slot* Call::shared(const Param& p)
{
    auto it = ctx_.values.find(canonical(p));
    return it == ctx_.values.end() ? nullptr : &it->second;
}

const Slot& Call::slot(const char* name) const
{
    static const Slot none;
    for (size_t i = 0; i < ex_.params.size(); ++i)
        if (!std::strcmp(ex_.params[i].name, name)) return slots_[i];
    return none;
}

int64_t Call::output_value(const std::string& name) const
{
    auto it = output_by_name_.find(name);
    if (it == output_by_name_.end()) return -1;
    for (auto& p : ex_.params)
        if (name == p.name) {
            int64_t v = 0;
            if (p.element == 8) std::memcpy(&v, it->second->data(), 8);
            else {
                int32_t w;
                std::memcpy(&w, it->second->data(), 4);
                v = w;
            }
            return v;
        }
    return -1;
}

// A query sizing an Init's spec: the kind and the antialiasing that Init makes, before any
// value the work call shares, since a spec sized for another kind or for antialiasing differs
// in size from the one the Init fills.
bool Call::from_parent_name(const std::string& n, Slot& s) const
{
    if (n == "antialiasing") {
        s.i = has(parent_->name, "Antialiasing") ? 1 : 0;
        return true;
    }
    static const struct { const char* word; int kind; } kinds[] = {
        {"Nearest", kelNearest}, {"Linear", kelLinear}, {"CubicLagrange", kelCubicLagrange},
        {"Cubic", kelCubic}, {"Super", kelSuper}, {"Lanczos", kelLanczos}};
    for (auto& k : kinds)
        if (has(parent_->name, k.word)) {
            s.i = k.kind;
            return true;
        }
    return false;
}

void Call::decode_scalars()
{
    Input& in = ctx_.in;
    for (size_t i = 0; i < ex_.params.size(); ++i) {
        const Param& p = ex_.params[i];
        std::string n = p.name;
        if (p.depth || ends_with(n, "Step")) continue;
        Slot& s = slots_[i];
        done_[i] = true;
        std::string type = p.type;
        if (type == "KelDataType" && parent_) {
            // A query or Init asked for a type: the type its own name (or its caller's)
            // spells, before any the work call shares, since an Init of another type than the
            // work call's (keliLUT_Init_16u for an 8u call) needs its spec sized for its own.
            auto own = type_tokens(ex_.name);
            auto up = type_tokens(parent_->name);
            if (!own.empty() || !up.empty()) {
                s.i = !own.empty() ? own.front() : up.front();
                continue;
            }
        }
        if (parent_ && (n == "interpolation" || n == "antialiasing") && from_parent_name(n, s)) {
            ctx_.values[canonical(p)] = s;
            continue;
        }
        if (Slot* known = shared(p)) {
            s = *known;
            continue;
        }
        bool wide = is_wide(p);
        if (type == "KeliSize" || type == "KeliSizeL") {
            bool small = has(n, "mask") || has(n, "kernel") || has(n, "block") || has(n, "tpl");
            int64_t w = small ? mask_side(in, wide) : side(in, wide);
            int64_t h = small ? mask_side(in, wide) : side(in, wide);
            if (wide) {
                KeliSizeL r{w, h};
                std::memcpy(s.rec, &r, sizeof r);
            } else {
                KeliSize r{static_cast<int32_t>(w), static_cast<int32_t>(h)};
                std::memcpy(s.rec, &r, sizeof r);
            }
        } else if (type == "KeliPoint" || type == "KeliPointL") {
            int64_t x = coordinate(in, wide), y = coordinate(in, wide);
            if (wide) {
                KeliPointL r{x, y};
                std::memcpy(s.rec, &r, sizeof r);
            } else {
                KeliPoint r{static_cast<int32_t>(x), static_cast<int32_t>(y)};
                std::memcpy(s.rec, &r, sizeof r);
            }
        } else if (type == "KeliRect" || type == "KeliRectL") {
            int64_t v[4] = {coordinate(in, wide), coordinate(in, wide), side(in, wide), side(in, wide)};
            if (wide) std::memcpy(s.rec, v, sizeof v);
            else
                for (int k = 0; k < 4; ++k) {
                    int32_t w = static_cast<int32_t>(v[k]);
                    std::memcpy(s.rec + 4 * k, &w, 4);
                }
        } else if (const EnumValues* e = enum_of(p)) {
            uint8_t b = in.u8();
            if (b < 224) s.i = e->values[b % e->values.size()];
            else s.i = small_int(in);
            if (type == "KeliBorderType" && (b & 1)) s.i |= in.u8() & 0xF0;
        } else if (is_record(p)) {
            for (size_t k = 0; k < sizeof s.rec; k += 4) {
                int32_t w = static_cast<int32_t>(small_int(in));
                std::memcpy(s.rec + k, &w, 4);
            }
        } else if (type == "float" || type == "double" || type == "Kel32f" || type == "Kel64f") {
            s.f = interesting_double(in);
        } else if (n == "scaleFactor") {
            s.i = scale_factor(in);
        } else if (has(n, "order") || has(n, "Ord")) {
            s.i = has(n, "Ord") ? small_int(in) : fft_order(in);
        } else if (n == "numChannels" || n == "channels" || n == "nChannel") {
            s.i = channel_count(in);
        } else if (n == "maskSize" || n == "anchor" || has(n, "Border") || has(n, "BitOffset")) {
            s.i = n == "maskSize" ? mask_side(in, wide) : coordinate(in, wide);
        } else if (n == "widthPixels" || n == "heightPixels") {
            s.i = side(in, wide);
        } else if (n == "nBitSize") {
            s.i = in.u8() % 20;
        } else if (type == "Kel32u" && (n == "antialiasing" || n == "direction" || n == "interpolation" ||
                                        n == "mode" || n == "smoothEdge")) {
            s.i = mode_word(in);
        } else if (type == "int" || type == "int64_t" || type == "Kel64s") {
            s.i = small_int(in);
        } else {
            element_value(in, type, s);
        }
        ctx_.values[canonical(p)] = s;
    }
}

int64_t Call::reach() const
{
    // Room around every image for what masks, anchors, offsets, borders and tiles may read:
    // the largest coordinate or side any argument of this input names.
    int64_t m = 0;
    // Magnitudes clamp at 2^40: far past any buffer the harness gives, and safe to add to.
    auto take = [&](int64_t v) { m = std::max(m, v <= -(int64_t{1} << 40) || v >= (int64_t{1} << 40) ? int64_t{1} << 40 : v < 0 ? -v : v); };
    for (auto& kv : ctx_.values) {
        const std::string& key = kv.first;
        const Slot& s = kv.second;
        if (has(key, ":KeliSizeL") || has(key, ":KeliPointL") || has(key, ":KeliRectL")) {
            int64_t v[4];
            std::memcpy(v, s.rec, sizeof v);
            for (int k = 0; k < (has(key, "Rect") ? 4 : 2); ++k) take(v[k]);
        } else if (has(key, ":KeliSize") || has(key, ":KeliPoint") || has(key, ":KeliRect")) {
            int32_t v[4];
            std::memcpy(v, s.rec, sizeof v);
            for (int k = 0; k < (has(key, "Rect") ? 4 : 2); ++k) take(v[k]);
        } else if (has(key, "maskSize:") || has(key, "anchor:") || has(key, "Border") || has(key, "BitOffset")) {
            take(s.i);
        }
    }
    return m + 4;
}

int Call::channels_for(const Param& p) const
{
    std::string n = p.name;
    if (n == "pMask" || has(n, "Map") || p.depth == 2) return 1;
    auto l = layouts(ex_.name);
    if (l.empty()) return 1;
    bool source = p.is_const || (n.rfind("pSrc", 0) == 0 && n != "pSrcDst");
    const std::string& t = source ? l.front() : l.back();
    if (t.find('P') != std::string::npos) return 1;
    return t.back() - '0';
}

void Call::prepare_pointers()
{
    // Specs and buffers first: the queries and Init calls behind them decode values (FFT
    // orders, source sizes) that size the images too.
    for (int pass = 0; pass < 2; ++pass)
        for (size_t i = 0; i < ex_.params.size(); ++i) {
            const Param& p = ex_.params[i];
            if (!p.depth) continue;
            int step = step_of(ex_, p);
            bool prepared = step < 0 && (is_spec(p) || role_of_buffer(p));
            if (prepared != (pass == 0)) continue;
            if (step >= 0) {
                image(static_cast<int>(i), step);
                done_[step] = true;
            } else if (is_spec(p)) {
                spec_pointer(static_cast<int>(i));
            } else if (const char* role = role_of_buffer(p)) {
                queried_buffer(static_cast<int>(i), role);
            } else {
                plain_pointer(static_cast<int>(i));
            }
        }
    for (size_t i = 0; i < ex_.params.size(); ++i)
        if (!done_[i]) slots_[i].i = small_int(ctx_.in);  // a step without its image
}

void Call::image(int i, int step_index)
{
    const Param& p = ex_.params[i];
    const Param& sp = ex_.params[step_index];
    Input& in = ctx_.in;
    std::string n = p.name;
    bool source = (n.rfind("pSrc", 0) == 0 && n != "pSrcDst") || n == "pMask";
    // The region this image covers: the size its side of the call names.
    static const char* for_src[] = {"srcRoiSize", "srcSize", "roiSize", "dstRoiSize", "dstSize"};
    static const char* for_dst[] = {"dstRoiSize", "dstSize", "roiSize", "srcRoiSize", "srcSize"};
    const char* const* order = source ? for_src : for_dst;
    int64_t w = -1, h = -1;
    auto size_named = [&](const char* name) {
        for (size_t k = 0; k < ex_.params.size(); ++k) {
            const Param& q = ex_.params[k];
            if (std::strcmp(q.name, name) || q.depth) continue;
            if (!std::strcmp(q.type, "KeliSizeL")) {
                KeliSizeL s = record<KeliSizeL>(slots_[k]);
                w = s.width, h = s.height;
            } else {
                KeliSize s = record<KeliSize>(slots_[k]);
                w = s.width, h = s.height;
            }
            return true;
        }
        return false;
    };
    if (has(n, "Tpl")) size_named("tplRoiSize");
    for (int k = 0; k < 5 && w < 0 && h < 0; ++k)
        if (size_named(order[k])) break;
    if (w < 0 && h < 0) {
        // Power-of-two transforms: the orders give the sides.
        const Slot& ox = slot("orderX");
        const Slot& oy = slot("orderY");
        bool orders = false;
        for (auto& q : ex_.params) orders = orders || !std::strcmp(q.name, "orderX");
        if (!orders) {
            for (auto& kv : ctx_.values)
                if (kv.first.rfind("orderX:", 0) == 0) orders = true;
        }
        int64_t x = orders ? (shared(Param{"int", "orderX", 0, 0, 0, 4}) ? shared(Param{"int", "orderX", 0, 0, 0, 4})->i : ox.i) : 0;
        int64_t y = orders ? (shared(Param{"int", "orderY", 0, 0, 0, 4}) ? shared(Param{"int", "orderY", 0, 0, 0, 4})->i : oy.i) : 0;
        w = x >= 0 && x < 20 ? int64_t{1} << x : 0;
        h = y >= 0 && y < 20 ? int64_t{1} << y : 0;
    }
    w = std::max<int64_t>(w, 0);
    h = std::max<int64_t>(h, 0);
    // A transposing or diagonal-mirroring export swaps the sides between its images.
    bool axis = false;
    for (auto& q : ex_.params) axis = axis || !std::strcmp(q.type, "KeliAxis");
    if (axis || has(ex_.name, "Transpose")) w = h = std::max(w, h);
    const int64_t elem = p.element;
    const int64_t pix = channels_for(p) * elem;
    const int64_t margin = exact_region_ ? 0 : reach();
    bool fits = w < (int64_t{1} << 31) && h < (int64_t{1} << 31) && margin < (int64_t{1} << 20);
    int64_t row = fits ? (w + 2 * margin) * pix : 0;
    int64_t base = std::max(row, elem);
    uint8_t b = in.u8();
    bool wide_step = is_wide(sp);
    int64_t step;
    if (b < 150) step = base + (b % 4) * elem;
    else if (b < 180) step = -(base + (b % 3) * elem);
    else if (b < 190) step = base + (elem == 1 ? 1 : 3 * elem);
    else if (b < 200) step = 0;
    else if (b < 210) step = base - elem;
    else if (b < 220) step = -elem;  // -1 for bytes; wider elements keep their alignment
    else if (b < 230) step = wide_step ? int64_t{1} << 40 : int64_t{1} << 30;
    else if (b < 240) step = wide_step ? std::numeric_limits<int64_t>::min() / 2 : std::numeric_limits<int32_t>::min();
    else step = 2 * base + elem;
    if (!wide_step) step = std::clamp<int64_t>(step, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    slots_[step_index].i = step;

    // The bytes rows -margin .. h - 1 + margin span at this step.
    int64_t lo = 0, hi = 0, bytes = -1;
    if (fits && (w > 0 && h > 0)) {
        __int128 first = static_cast<__int128>(-margin) * step, last = static_cast<__int128>(h - 1 + margin) * step;
        __int128 l = std::min(first, last) - margin * pix, u = std::max(first, last) + (w + margin) * pix;
        // A short step (zero, or rows that overlap) spans few bytes, but the export still
        // walks every pixel: the work is capped as well as the memory.
        __int128 work = static_cast<__int128>(h + 2 * margin) * ((w + 2 * margin) * pix);
        if (u - l <= kMaxBytes && work <= kMaxWork) lo = static_cast<int64_t>(l), hi = static_cast<int64_t>(u), bytes = hi - lo;
    } else if (fits) {
        bytes = 0;  // an empty region: a valid address with nothing behind it
    }
    int planes = p.depth == 2 ? (p.length ? p.length : 4) : 1;
    std::vector<void*> addresses;
    bool null = bytes < 0 || (!parent_ && in.u8() < 6);
    for (int k = 0; k < planes; ++k) {
        if (null) {
            addresses.push_back(nullptr);
            continue;
        }
        auto g = std::make_unique<Guarded>(static_cast<size_t>(bytes), static_cast<size_t>(elem), in.u8() & 1);
        ctx_.noise.fill(g->data(), g->size());
        unsigned char* origin = g->data() - lo;
        addresses.push_back(origin);
        if (!p.is_const && !parent_) {
            Written wr{g.get(), g->snapshot(), 0, 0, 0, 0, p.name, true};
            if (exact_region_) wr.origin = -lo, wr.step = step, wr.rows = h, wr.row_bytes = w * pix;
            written_.push_back(std::move(wr));
        } else if (!parent_ && g->size() <= (1u << 20)) {
            inputs_.emplace_back(g.get(), g->snapshot());
        }
        ctx_.memory.push_back(std::move(g));
    }
    place(i, addresses, p.depth == 2);
}

// The argument: the one buffer, or (planar) a guarded array of the planes' addresses.
void Call::place(int i, const std::vector<void*>& addresses, bool planar)
{
    if (!planar) {
        slots_[i].p = addresses[0];
        return;
    }
    auto arr = std::make_unique<Guarded>(addresses.size() * sizeof(void*), sizeof(void*), true);
    std::memcpy(arr->data(), addresses.data(), addresses.size() * sizeof(void*));
    slots_[i].p = arr->data();
    ctx_.memory.push_back(std::move(arr));
}

void Call::plain_pointer(int i)
{
    const Param& p = ex_.params[i];
    Input& in = ctx_.in;
    std::string n = p.name;
    if (!std::strcmp(p.type, "void")) return;  // keliFree(NULL)
    if (p.is_const) {
        if (Slot* known = shared(p)) {
            slots_[i] = *known;
            return;
        }
    }
    int64_t count = p.length ? p.length : kLooseLength;
    if (n == "pTable") {
        const Slot& bits = slot("nBitSize");
        count = bits.i >= 0 && bits.i <= 16 ? int64_t{1} << bits.i : 1;
        count = std::max<int64_t>(count, 1);
        if (std::strstr(ex_.name, "24u")) count *= 3;  // three-byte entries
    }
    if (is_record(p) && !p.length && n != "pLocation") count = 1;
    // Lengths other arguments state: a kernel's sides, a vector's length, a location count,
    // a descriptor's size from the family's query.
    auto cap_count = [&](int64_t c) { count = c < 0 ? 0 : c > (int64_t{1} << 22) ? -1 : std::max(c, int64_t{1}); };
    const Slot* kernel = shared(Param{"KeliSize", "kernelSize", 0, 0, 0, 8});
    if (n == "pKernel" && kernel) {
        KeliSize k = record<KeliSize>(*kernel);
        cap_count(int64_t{std::max(k.width, 0)} * std::max(k.height, 0));
    } else if (!p.length && p.depth == 1 && slot("length").i && !is_record(p)) {
        cap_count(slot("length").i);
    } else if (n == "pLocation") {
        cap_count(slot("nLocations").i);
    } else if (n == "pDst" && !p.is_const) {
        int64_t one = query_size("descriptor", &ex_);
        if (one >= 0) cap_count(std::max<int64_t>(slot("nLocations").i, 0) * (one / 4 + 1));
    }
    if (count < 0) {  // more than the harness gives: a null pointer the export must refuse
        slots_[i].p = nullptr;
        return;
    }
    const size_t elem = static_cast<size_t>(p.element);
    auto fill = [&](Guarded& g) {
        unsigned char* d = g.data();
        std::string type = p.type;
        if (type == "int") {
            for (int64_t k = 0; k < count; ++k) {
                uint8_t b = in.u8();
                int32_t v = b < 224 ? static_cast<int32_t>(b % 40) - 2 : static_cast<int32_t>(in.u16() % 300);
                std::memcpy(d + 4 * k, &v, 4);
                if (k > 16) {  // the rest from the noise, as small
                    for (int64_t r = k; r < count; ++r) {
                        int32_t u = static_cast<int32_t>(ctx_.noise.next() % 300);
                        std::memcpy(d + 4 * r, &u, 4);
                    }
                    break;
                }
            }
        } else if (type == "Kel32f" || type == "Kel64f") {
            for (int64_t k = 0; k < count; ++k) {
                double v = k < 32 ? interesting_double(in) : static_cast<double>(ctx_.noise.next() % 2000) / 8 - 100;
                if (elem == 4) {
                    float f = static_cast<float>(v);
                    std::memcpy(d + 4 * k, &f, 4);
                } else {
                    std::memcpy(d + 8 * k, &v, 8);
                }
            }
        } else if (is_record(p)) {
            for (size_t k = 0; k + 4 <= g.size(); k += 4) {
                uint8_t b = in.u8();
                if (b < 160) {
                    int32_t v = static_cast<int32_t>(small_int(in));
                    std::memcpy(d + k, &v, 4);
                } else {
                    float f = static_cast<float>(interesting_double(in));
                    std::memcpy(d + k, &f, 4);
                }
                if (k > 64) {
                    ctx_.noise.fill(d + k, g.size() - k);
                    for (size_t r = k; r + 4 <= g.size(); r += 4) d[r + 3] = 0, d[r + 2] &= 0x3;
                    break;
                }
            }
        } else {
            ctx_.noise.fill(d, g.size());
        }
    };
    int planes = p.depth == 2 ? (p.length ? p.length : 4) : 1;
    if (p.depth == 2 && !p.length && slot("count").i > 4) planes = static_cast<int>(std::min<int64_t>(slot("count").i, 4096));
    int64_t plane_count = p.depth == 2 ? (n == "pTable" ? count : std::max(kLooseLength, slot("length").i)) : count;
    if (plane_count > (int64_t{1} << 22)) {
        slots_[i].p = nullptr;
        return;
    }
    if (p.depth == 2) count = plane_count;
    std::vector<void*> addresses;
    for (int k = 0; k < planes; ++k) {
        auto g = std::make_unique<Guarded>(static_cast<size_t>(count) * elem, elem, in.u8() & 1);
        fill(*g);
        addresses.push_back(g->data());
        if (!p.is_const) {
            // A preparing query's outputs start at -1: a size it did not write reads as none.
            if (parent_) std::memset(g->data(), 0xFF, g->size());
            output_by_name_[n] = g.get();
            if (!parent_) {
                Written wr{g.get(), g->snapshot(), 0, 0, 0, 0, p.name, false};
                written_.push_back(std::move(wr));
            }
        } else if (!parent_) {
            inputs_.emplace_back(g.get(), g->snapshot());
        }
        ctx_.memory.push_back(std::move(g));
    }
    place(i, addresses, p.depth == 2);
    if (!parent_ && in.u8() < 6) slots_[i].p = nullptr;
    if (p.is_const) ctx_.values[canonical(p)] = slots_[i];
}

int64_t Call::query_size(const char* role, const Export* for_export)
{
    if (ctx_.depth >= kMaxPrepareDepth) return -1;
    int best = -1, best_score = -1;
    std::string name;
    for (int k = 0; k < kExportCount; ++k) {
        const Export& q = kExports[k];
        if (q.family != ex_.family || !has(q.name, "Get") || !has(q.name, "Size")) continue;
        for (auto& qp : q.params) {
            const char* r = role_of_size(qp);
            if (r && !std::strcmp(r, role)) {
                // A wide (_L) export sizes through the wide query.
                int score = name_score(for_export->name, q.name) +
                            (ends_with(for_export->name, "_L") == ends_with(q.name, "_L") ? 100 : 0);
                if (score > best_score) best = k, best_score = score, name = qp.name;
            }
        }
    }
    if (best < 0) return -1;
    // The channel count a query wants is not always the layout's digit (a query may select AC4
    // by a code of its own): when the seeded count is refused, the other counts in turn.
    static const int64_t counts[] = {0, 1, 3, 4, 9};
    int64_t size = -1;
    for (int64_t count : counts) {
        std::map<std::string, Slot> saved;
        if (count)
            for (const char* key : {"numChannels:int", "channels:int"}) {
                auto it = ctx_.values.find(key);
                if (it == ctx_.values.end()) continue;
                saved[key] = it->second;
                it->second.i = count;
            }
        if (count && saved.empty()) break;
        // The query's own arguments (a mode word the Init lacks) get fresh values on
        // a retry: a refusal should come from the values the export shares.
        for (int attempt = 0; attempt < 3 && size < 0; ++attempt) {
            std::map<std::string, Slot> before = ctx_.values;
            ++ctx_.depth;
            Call q(ctx_, best, for_export);
            Outcome o = q.run();
            --ctx_.depth;
            if (o.status >= 0) size = q.output_value(name);
            else
                for (auto it = ctx_.values.begin(); it != ctx_.values.end();)
                    it = before.count(it->first) ? std::next(it) : ctx_.values.erase(it);
        }
        for (auto& kv : saved) ctx_.values[kv.first] = kv.second;
        if (size >= 0) break;
    }
    return size;
}

void Call::queried_buffer(int i, const char* role)
{
    int64_t size = query_size(role, &ex_);
    // A size the family would not give (its query refused the arguments): a small work buffer,
    // which the export must refuse to use or use within. An Init's scratch may be refused by the
    // query for a value the Init does not take (the region), and a size past the harness's
    // limit cannot be given: a null pointer then, which the export must refuse if it needs one.
    bool work = !std::strcmp(role, "buffer");
    if (size > kMaxBytes || (size < 0 && !work)) {
        slots_[i].p = nullptr;
        return;
    }
    if (size < 0) size = ctx_.in.u8() % 64;
    auto g = std::make_unique<Guarded>(static_cast<size_t>(size), 1, ctx_.in.u8() & 1);
    ctx_.noise.fill(g->data(), g->size());
    slots_[i].p = g->data();
    if (!parent_ && ctx_.in.u8() < 4) slots_[i].p = nullptr;
    ctx_.memory.push_back(std::move(g));
}

int Call::pick_init(int i) const
{
    const Param& p = ex_.params[i];
    std::vector<std::pair<int, int>> found;  // (score, export)
    for (int k = 0; k < kExportCount; ++k) {
        const Export& e = kExports[k];
        if (e.family != ex_.family || !has(e.name, "Init") || k == index_) continue;
        for (auto& q : e.params)
            if (is_spec(q) && !q.is_const && !std::strcmp(q.type, p.type)) {
                found.emplace_back(name_score(ex_.name, e.name), k);
                break;
            }
    }
    if (found.empty()) return -1;
    std::sort(found.rbegin(), found.rend());
    uint8_t b = ctx_.in.u8();
    return b < 192 ? found.front().second : found[b % found.size()].second;
}

void Call::spec_pointer(int i)
{
    const Param& p = ex_.params[i];
    bool fills = !p.is_const && has(ex_.name, "Init");
    if (fills) {
        // The query may refuse a value the Init does not take (a region), or want more than the
        // harness gives: a null spec then, which the Init must refuse.
        int64_t size = query_size("spec", &ex_);
        if (size < 0 || size > kMaxBytes) {
            slots_[i].p = nullptr;
            return;
        }
        auto g = std::make_unique<Guarded>(static_cast<size_t>(size), 1, ctx_.in.u8() & 1);
        std::memset(g->data(), 0, g->size());
        slots_[i].p = g->data();
        if (!parent_) {
            Written wr{g.get(), g->snapshot(), 0, 0, 0, 0, p.name, true};
            written_.push_back(std::move(wr));
        }
        if (!parent_ && ctx_.in.u8() < 4) slots_[i].p = nullptr;
        ctx_.memory.push_back(std::move(g));
        return;
    }
    // A spec to read: made by one of the family's Init calls on the same values, or (when none
    // succeeds) a zeroed block the export must recognise as no spec of its own.
    std::string key = std::string("spec:") + p.type;
    auto known = ctx_.values.find(key);
    if (known != ctx_.values.end() && p.is_const) {
        slots_[i] = known->second;
        return;
    }
    void* spec = nullptr;
    int init = ctx_.depth < kMaxPrepareDepth ? pick_init(i) : -1;
    if (init >= 0) {
        ++ctx_.depth;
        Call c(ctx_, init, &ex_);
        Outcome o = c.run();
        --ctx_.depth;
        if (o.status >= 0)
            for (auto& q : kExports[init].params)
                if (is_spec(q) && !q.is_const) spec = c.slot(q.name).p;
    }
    if (!spec) {
        auto g = std::make_unique<Guarded>(4096, 1, true);
        std::memset(g->data(), 0, g->size());
        spec = g->data();
        ctx_.memory.push_back(std::move(g));
    }
    slots_[i].p = spec;
    ctx_.values[key] = slots_[i];
    if (!parent_ && ctx_.in.u8() < 4) slots_[i].p = nullptr;
}

Outcome Call::run()
{
    Outcome o;
    ctx_.trail.push_back(ex_.name);
    static const bool trace = std::getenv("KELI_FUZZ_TRACE") != nullptr;
    if (trace) describe("preparing");
    o.status = ex_.call(slots_.data(), &o.returned);
    if (trace) std::fprintf(stderr, "  status %d\n", o.status);
    if (o.returned && has(ex_.name, "Malloc")) keliFree(o.returned);  // other pointers are the library's
    return o;
}

void Call::report(const std::string& what) const
{
    describe(("FUZZ FINDING in " + std::string(ex_.name) + ": " + what).c_str());
    std::abort();
}

void Call::describe(const char* headline) const
{
    std::fprintf(stderr, "\n%s\n  calls:", headline);
    for (auto& t : ctx_.trail) std::fprintf(stderr, " %s", t.c_str());
    std::fprintf(stderr, "\n  arguments:");
    for (size_t k = 0; k < ex_.params.size(); ++k) {
        const Param& p = ex_.params[k];
        const Slot& s = slots_[k];
        if (p.depth) std::fprintf(stderr, " %s=%p", p.name, s.p);
        else if (is_record(p)) {
            int32_t v[4];
            std::memcpy(v, s.rec, sizeof v);
            if (is_wide(p)) {
                int64_t w[4];
                std::memcpy(w, s.rec, sizeof w);
                std::fprintf(stderr, " %s={%lld,%lld,%lld,%lld}", p.name, (long long)w[0], (long long)w[1], (long long)w[2], (long long)w[3]);
            } else {
                std::fprintf(stderr, " %s={%d,%d,%d,%d}", p.name, v[0], v[1], v[2], v[3]);
            }
        } else if (!std::strcmp(p.type, "float") || !std::strcmp(p.type, "double") || !std::strcmp(p.type, "Kel32f") || !std::strcmp(p.type, "Kel64f")) {
            std::fprintf(stderr, " %s=%g", p.name, s.f);
        } else {
            std::fprintf(stderr, " %s=%lld", p.name, static_cast<long long>(s.i));
        }
    }
    std::fprintf(stderr, "\n");
}

// The rows r in [0, rows) whose bytes [origin + r step, + rowBytes) meet [0, size), as a range
// [first, end) (the rows of one step sign meet it in one run).
static std::pair<__int128, __int128> rows_meeting(int64_t origin, int64_t step, int64_t rows, int64_t rowBytes,
                                                  __int128 size)
{
    if (rows <= 0 || rowBytes <= 0) return {0, 0};
    if (step == 0) return {0, origin < size && origin + rowBytes > 0 ? 1 : 0};
    // floor(a / b) for b > 0.
    const auto floor_div = [](__int128 a, __int128 b) { return a >= 0 ? a / b : -((-a + b - 1) / b); };
    const __int128 s = step > 0 ? step : -__int128(step);
    // With |step|: a row meets the buffer while lo < r |s| < hi, lo and hi as the sign gives.
    const __int128 lo = step > 0 ? -__int128(rowBytes) - origin : origin - size;
    const __int128 hi = step > 0 ? size - origin : origin + rowBytes;
    const __int128 first = std::max<__int128>(0, floor_div(lo, s) + 1);
    const __int128 end = std::min<__int128>(rows, floor_div(hi - 1, s) + 1);
    return {first, std::max(first, end)};
}

void Call::run_checked()
{
    // Any rounding mode, flush-to-zero and denormals-are-zero setting of the caller's.
    uint8_t fp = ctx_.in.u8();
    const unsigned mxcsr = 0x1F80u | ((fp & 3u) << 13) | (fp & 4 ? 0x8040u : 0u);
    uint16_t x87 = 0x037F | static_cast<uint16_t>(((fp >> 3) & 3u) << 10);
    _mm_setcsr(mxcsr);
    asm volatile("fldcw %0" : : "m"(x87));
    ctx_.trail.push_back(ex_.name);
    // Replaying a crash: KELI_FUZZ_TRACE=1 shows the call before it runs.
    static const bool trace = std::getenv("KELI_FUZZ_TRACE") != nullptr;
    if (trace) describe("calling");
    void* returned = nullptr;
    KelStatus status = ex_.call(slots_.data(), &returned);
    const unsigned mxcsr_after = _mm_getcsr();
    uint16_t x87_after;
    asm volatile("fnstcw %0" : "=m"(x87_after));
    _mm_setcsr(0x1F80u);
    uint16_t x87_default = 0x037F;
    asm volatile("fldcw %0" : : "m"(x87_default));
    mark_reached(index_, status);
    if (returned && has(ex_.name, "Malloc")) keliFree(returned);  // other pointers are the library's

    char text[160];
    if ((mxcsr ^ mxcsr_after) & ~0x3Fu) {
        std::snprintf(text, sizeof text, "MXCSR control 0x%04x left as 0x%04x", mxcsr, mxcsr_after);
        report(text);
    }
    if (x87 != x87_after) {
        std::snprintf(text, sizeof text, "x87 control word 0x%04x left as 0x%04x", x87, x87_after);
        report(text);
    }
    if (ex_.returns == Returns::status) {
        const auto& own = kFamilies[ex_.family].statuses;
        bool listed = std::find(own.begin(), own.end(), status) != own.end() ||
                      std::find(kFrameStatuses.begin(), kFrameStatuses.end(), status) != kFrameStatuses.end();
        if (!listed) {
            std::snprintf(text, sizeof text, "status %d is not one the family returns (%s)", status, kFamilies[ex_.family].name);
            report(text);
        }
    }
    for (auto& in : inputs_)
        if (!in.first->same_as(in.second)) report("a const argument changed");
    for (auto& w : written_) {
        if (status < 0) {
            if (w.destination && !w.buffer->same_as(w.before)) {
                std::snprintf(text, sizeof text, "status %d but %s was written", status, w.name);
                report(text);
            }
            continue;
        }
        if (!w.rows || w.buffer->size() > (8u << 20)) continue;
        // Outside the rows the region and step describe nothing may change.
        // Row positions in 128 bits: a step near 2^62 times a row number leaves 64 bits.
        std::vector<unsigned char> inside(w.buffer->size(), 0);
        const __int128 size = static_cast<__int128>(inside.size());
        // Only the rows that meet the buffer are walked: a region of 2^31 rows (accepted by a
        // wide member with an empty width, say) would otherwise take the harness minutes.
        const auto [first, end] = rows_meeting(w.origin, w.step, w.rows, w.row_bytes, size);
        for (__int128 r = first; r < end; ++r) {
            const __int128 at = static_cast<__int128>(w.origin) + r * w.step;
            const __int128 from = std::max<__int128>(at, 0), to = std::min<__int128>(at + w.row_bytes, size);
            for (__int128 k = from; k < to; ++k) inside[static_cast<size_t>(k)] = 1;
        }
        const unsigned char* now = w.buffer->data();
        for (size_t k = 0; k < inside.size(); ++k)
            if (!inside[k] && now[k] != w.before[k]) {
                std::snprintf(text, sizeof text, "%s: byte %lld outside the region changed (status %d)", w.name,
                              static_cast<long long>(static_cast<int64_t>(k) - w.origin), status);
                report(text);
            }
    }
}

}  // namespace keli_fuzz
