// exportgen - turns the list of exports into the files the linkers need.
//
// Built for the host and compiled against the public headers, so each plain
// export's argument bytes come from its declared type: on 32-bit Windows a
// stdcall function is exported as _Name@N, N being four bytes per argument
// (eight for 64-bit ones). Variadic exports use the caller-pops convention
// and keep their plain name.
//
//   exportgen --def FILE            Windows .def with the decorated names
//   exportgen --decorated FILE      the decorated names, one a line
//   exportgen --version-script FILE the Linux version script
//   exportgen --c-names FILE        the C symbols the Linux library exports
//   exportgen --cxx-prefixes FILE   demangled prefixes of the C++ exports

#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "qzkernel.h"

namespace {

// Argument bytes on 32-bit Windows. The pointer-sized `long` types of the
// POSIX headers (LONG_PTR, DWORD_PTR, WPARAM, ...) are four bytes there;
// 64-bit quantities are declared with the `long long` types.
template <class T>
constexpr unsigned arg_bytes() {
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_pointer_v<U> || std::is_reference_v<T> || std::is_null_pointer_v<U>) {
        return 4;
    } else if constexpr (std::is_same_v<U, long> || std::is_same_v<U, unsigned long>) {
        return 4;
    } else if constexpr (std::is_integral_v<U> || std::is_enum_v<U> ||
                         std::is_floating_point_v<U>) {
        static_assert(sizeof(U) <= 8, "no wider scalar crosses the interface");
        return sizeof(U) <= 4 ? 4 : 8;
    } else {
        static_assert(std::is_trivially_copyable_v<U>, "records pass by value as plain bytes");
        return (sizeof(U) + 3) / 4 * 4;
    }
}

template <class F>
struct Signature;
template <class R, class... A>
struct Signature<R(A...)> {
    static constexpr bool variadic = false;
    static constexpr unsigned bytes = (0u + ... + arg_bytes<A>());
};
template <class R, class... A>
struct Signature<R(A...) noexcept> : Signature<R(A...)> {};
template <class R, class... A>
struct Signature<R(A..., ...)> {
    static constexpr bool variadic = true;
    static constexpr unsigned bytes = 0;
};
template <class R, class... A>
struct Signature<R(A..., ...) noexcept> : Signature<R(A..., ...)> {};

enum class Kind { Plain, Cxx, Class, Posix };

struct Export {
    const char* name;
    Kind kind;
    bool variadic;
    unsigned bytes;
};

#define QZ_EXPORT_PLAIN(n) \
    {#n, Kind::Plain, Signature<decltype(n)>::variadic, Signature<decltype(n)>::bytes},
// A plain function whose name also has C++ overloads: the list gives the
// plain one's type, which picks it from the overload set.
#define QZ_EXPORT_TYPED(n, ...)                         \
    {#n, Kind::Plain, Signature<__VA_ARGS__>::variadic, \
     Signature<__VA_ARGS__>::bytes + 0 * sizeof(static_cast<std::add_pointer_t<__VA_ARGS__>>(&n))},
#define QZ_EXPORT_CXX(n) {#n, Kind::Cxx, false, 0},
#define QZ_EXPORT_CLASS(n) {#n, Kind::Class, false, 0},
#define QZ_EXPORT_POSIX(n) {#n, Kind::Posix, false, 0},

const Export kExports[] = {
#include "exports_table.inc"
    {nullptr, Kind::Plain, false, 0}};

// The MinGW linker names a stdcall symbol without its leading underscore.
std::string internal_symbol(const Export& e) {
    std::string name = e.name;
    if (!e.variadic) name.append("@").append(std::to_string(e.bytes));
    return name;
}

std::string decorated(const Export& e) {
    if (e.variadic) return e.name;
    std::string name = "_";
    name.append(internal_symbol(e));
    return name;
}

void write_def(FILE* out) {
    std::fprintf(out, "LIBRARY qzkernel.dll\nEXPORTS\n");
    for (const Export* e = kExports; e->name; ++e) {
        if (e->kind != Kind::Plain) continue;
        if (e->variadic)
            std::fprintf(out, "    %s\n", e->name);
        else
            std::fprintf(out, "    %s = %s\n", decorated(*e).c_str(), internal_symbol(*e).c_str());
    }
}

void write_decorated(FILE* out) {
    for (const Export* e = kExports; e->name; ++e)
        if (e->kind == Kind::Plain) std::fprintf(out, "%s\n", decorated(*e).c_str());
}

void write_cxx_block(FILE* out);

void write_version_script(FILE* out) {
    std::fprintf(out, "{\n  global:\n    extern \"C\" {\n");
    for (const Export* e = kExports; e->name; ++e)
        if (e->kind == Kind::Plain || e->kind == Kind::Posix)
            std::fprintf(out, "      %s;\n", e->name);
    std::fprintf(out, "    };\n");
    bool any_cxx = false;
    for (const Export* e = kExports; e->name; ++e)
        any_cxx = any_cxx || e->kind == Kind::Class || e->kind == Kind::Cxx;
    // ld refuses an empty block.
    if (any_cxx) write_cxx_block(out);
    std::fprintf(out, "  local: *;\n};\n");
}

void write_cxx_block(FILE* out) {
    std::fprintf(out, "    extern \"C++\" {\n");
    for (const Export* e = kExports; e->name; ++e) {
        if (e->kind == Kind::Class) {
            std::fprintf(out, "      %s::*;\n", e->name);
            std::fprintf(out, "      \"typeinfo for %s\";\n", e->name);
            std::fprintf(out, "      \"typeinfo name for %s\";\n", e->name);
            std::fprintf(out, "      \"vtable for %s\";\n", e->name);
        } else if (e->kind == Kind::Cxx) {
            std::fprintf(out, "      %s*;\n", e->name);
        }
    }
    std::fprintf(out, "    };\n");
}

void write_c_names(FILE* out) {
    for (const Export* e = kExports; e->name; ++e)
        if (e->kind == Kind::Plain || e->kind == Kind::Posix) std::fprintf(out, "%s\n", e->name);
}

void write_cxx_prefixes(FILE* out) {
    for (const Export* e = kExports; e->name; ++e) {
        if (e->kind == Kind::Class) std::fprintf(out, "%s::\n", e->name);
        if (e->kind == Kind::Cxx) std::fprintf(out, "%s(\n", e->name);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr,
                     "usage: exportgen --def|--decorated|--version-script|--c-names|"
                     "--cxx-prefixes FILE\n");
        return 2;
    }
    FILE* out = std::fopen(argv[2], "w");
    if (!out) {
        std::perror(argv[2]);
        return 1;
    }
    const std::string mode = argv[1];
    if (mode == "--def")
        write_def(out);
    else if (mode == "--decorated")
        write_decorated(out);
    else if (mode == "--version-script")
        write_version_script(out);
    else if (mode == "--c-names")
        write_c_names(out);
    else if (mode == "--cxx-prefixes")
        write_cxx_prefixes(out);
    else {
        std::fprintf(stderr, "exportgen: unknown mode %s\n", argv[1]);
        std::fclose(out);
        return 2;
    }
    return std::fclose(out) == 0 ? 0 : 1;
}
