#include "names.h"

#include <algorithm>
#include <array>

namespace host::aidl {
namespace {

constexpr std::string_view kCppKeywords[] = {
        "alignas",       "alignof",     "and",
        "and_eq",        "asm",         "auto",
        "bitand",        "bitor",       "bool",
        "break",         "case",        "catch",
        "char",          "char16_t",    "char32_t",
        "char8_t",       "class",       "co_await",
        "co_return",     "co_yield",    "compl",
        "concept",       "const",       "const_cast",
        "consteval",     "constexpr",   "constinit",
        "continue",      "decltype",    "default",
        "delete",        "do",          "double",
        "dynamic_cast",  "else",        "enum",
        "explicit",      "export",      "extern",
        "false",         "float",       "for",
        "friend",        "goto",        "if",
        "inline",        "int",         "long",
        "mutable",       "namespace",   "new",
        "noexcept",      "not",         "not_eq",
        "nullptr",       "operator",    "or",
        "or_eq",         "private",     "protected",
        "public",        "register",    "reinterpret_cast",
        "requires",      "return",      "short",
        "signed",        "sizeof",      "static",
        "static_assert", "static_cast", "struct",
        "switch",        "template",    "this",
        "thread_local",  "throw",       "true",
        "try",           "typedef",     "typeid",
        "typename",      "union",       "unsigned",
        "using",         "virtual",     "void",
        "volatile",      "wchar_t",     "while",
        "xor",           "xor_eq",
};

constexpr std::string_view kAidlWords[] = {
        "boolean",
        "byte",
        "import",
        "in",
        "inout",
        "interface",
        "oneway",
        "out",
        "package",
        "parcelable",
        "String",
        "IBinder",
        "ParcelableHolder",
        "ParcelFileDescriptor",
        "FileDescriptor",
        "CharSequence",
        "List",
        "Map",
};

// Macros of the C library, and what generated code names without a qualifier.
constexpr std::string_view kUsedByGeneratedCode[] = {
        "toString",
        "NULL",
        "EOF",
        "errno",
        "assert",
        "stdin",
        "stdout",
        "stderr",
        "BIG_ENDIAN",
        "LITTLE_ENDIAN",
        "IOV_MAX",
        "LINE_MAX",
        "NAME_MAX",
        "PATH_MAX",
        "RAND_MAX",
        "SIZE_MAX",
        "SSIZE_MAX",
        "EXIT_FAILURE",
        "EXIT_SUCCESS",
        "std",
        "int8_t",
        "uint8_t",
        "int32_t",
        "uint32_t",
        "int64_t",
        "size_t",
        "linux",
        "unix",
        "AParcel",
        "AIBinder",
        "AStatus",
        "binder_status_t",
        "transaction_code_t",
        "STATUS_OK",
        "STATUS_BAD_VALUE",
        "STATUS_BAD_TYPE",
        "STATUS_DEAD_OBJECT",
        "STATUS_UNEXPECTED_NULL",
        "STATUS_UNKNOWN_TRANSACTION",
        "FIRST_CALL_TRANSACTION",
        "FLAG_ONEWAY",
        "ANDROID_LOG_FATAL",
};

// Error numbers, one by one: END, ERROR and the like are good names.
constexpr std::string_view kErrorNumbers[] = {
        "E2BIG",           "EACCES",       "EADDRINUSE",   "EADDRNOTAVAIL",   "EADV",
        "EAFNOSUPPORT",    "EAGAIN",       "EALREADY",     "EBADE",           "EBADF",
        "EBADFD",          "EBADMSG",      "EBADR",        "EBADRQC",         "EBADSLT",
        "EBFONT",          "EBUSY",        "ECANCELED",    "ECHILD",          "ECHRNG",
        "ECOMM",           "ECONNABORTED", "ECONNREFUSED", "ECONNRESET",      "EDEADLK",
        "EDEADLOCK",       "EDESTADDRREQ", "EDOM",         "EDOTDOT",         "EDQUOT",
        "EEXIST",          "EFAULT",       "EFBIG",        "EHOSTDOWN",       "EHOSTUNREACH",
        "EHWPOISON",       "EIDRM",        "EILSEQ",       "EINPROGRESS",     "EINTR",
        "EINVAL",          "EIO",          "EISCONN",      "EISDIR",          "EISNAM",
        "EKEYEXPIRED",     "EKEYREJECTED", "EKEYREVOKED",  "EL2HLT",          "EL2NSYNC",
        "EL3HLT",          "EL3RST",       "ELIBACC",      "ELIBBAD",         "ELIBEXEC",
        "ELIBMAX",         "ELIBSCN",      "ELNRNG",       "ELOOP",           "EMEDIUMTYPE",
        "EMFILE",          "EMLINK",       "EMSGSIZE",     "EMULTIHOP",       "ENAMETOOLONG",
        "ENAVAIL",         "ENETDOWN",     "ENETRESET",    "ENETUNREACH",     "ENFILE",
        "ENOANO",          "ENOBUFS",      "ENOCSI",       "ENODATA",         "ENODEV",
        "ENOENT",          "ENOEXEC",      "ENOKEY",       "ENOLCK",          "ENOLINK",
        "ENOMEDIUM",       "ENOMEM",       "ENOMSG",       "ENONET",          "ENOPKG",
        "ENOPROTOOPT",     "ENOSPC",       "ENOSR",        "ENOSTR",          "ENOSYS",
        "ENOTBLK",         "ENOTCONN",     "ENOTDIR",      "ENOTEMPTY",       "ENOTNAM",
        "ENOTRECOVERABLE", "ENOTSOCK",     "ENOTSUP",      "ENOTTY",          "ENOTUNIQ",
        "ENXIO",           "EOPNOTSUPP",   "EOVERFLOW",    "EOWNERDEAD",      "EPERM",
        "EPFNOSUPPORT",    "EPIPE",        "EPROTO",       "EPROTONOSUPPORT", "EPROTOTYPE",
        "ERANGE",          "EREMCHG",      "EREMOTE",      "EREMOTEIO",       "ERESTART",
        "ERFKILL",         "EROFS",        "ESHUTDOWN",    "ESOCKTNOSUPPORT", "ESPIPE",
        "ESRCH",           "ESRMNT",       "ESTALE",       "ESTRPIPE",        "ETIME",
        "ETIMEDOUT",       "ETOOMANYREFS", "ETXTBSY",      "EUCLEAN",         "EUNATCH",
        "EUSERS",          "EWOULDBLOCK",  "EXDEV",        "EXFULL"};

// Of these there are macros with _MAX at the end, and with _MIN unless unsigned; SPEED_MAX is a
// good name.
constexpr std::string_view kNumberTypes[] = {
        "CHAR",   "SCHAR",   "UCHAR",  "SHRT",    "USHRT",     "INT",        "UINT",
        "LONG",   "ULONG",   "LLONG",  "ULLONG",  "LONG_LONG", "ULONG_LONG", "INT8",
        "INT16",  "INT32",   "INT64",  "UINT8",   "UINT16",    "UINT32",     "UINT64",
        "INTMAX", "UINTMAX", "INTPTR", "UINTPTR", "PTRDIFF",   "SIG_ATOMIC", "WCHAR",
        "WINT",   "FLT",     "DBL",    "LDBL"};

constexpr std::string_view kInterfaceMembers[] = {
        "descriptor",
        "version",
        "hash",
        "fromBinder",
        "readFromParcel",
        "writeToParcel",
        "asBinder",
        "isRemote",
        "dump",
        "handleShellCommand",
        "createBinder",
        "ref",
        "make",
        "asInterface",
        "defineClass",
        "getInterfaceVersion",
        "getInterfaceHash",
};

constexpr std::string_view kParcelableMembers[] = {
        "descriptor", "readFromParcel", "writeToParcel", "toString", "fixed_size",
};

constexpr std::string_view kUnionMembers[] = {
        "descriptor", "readFromParcel", "writeToParcel", "toString", "fixed_size",
        "Tag",        "getTag",         "get",           "set",      "make",
};

template <size_t N>
bool Holds(const std::string_view (&words)[N], std::string_view name) {
    return std::find(std::begin(words), std::end(words), name) != std::end(words);
}

bool StartsWith(std::string_view name, std::string_view start) {
    return name.substr(0, start.size()) == start;
}

bool IsLimit(std::string_view name) {
    const size_t end = std::min(name.rfind('_'), name.size());
    const std::string_view which = name.substr(end);
    return (which == "_MAX" || (which == "_MIN" && name.front() != 'U')) &&
           Holds(kNumberTypes, name.substr(0, end));
}

bool IsUsedByGeneratedCode(std::string_view name) {
    return Holds(kUsedByGeneratedCode, name) || Holds(kErrorNumbers, name) || IsLimit(name) ||
           StartsWith(name, "AParcel_") || StartsWith(name, "AIBinder_");
}

std::string Bare(const TypeDecl& type) {
    const std::string& name = type.name.text;
    const bool prefixed = name.size() > 1 && name[0] == 'I' && name[1] >= 'A' && name[1] <= 'Z';
    return prefixed ? name.substr(1) : name;
}

}  // namespace

std::string RefuseName(std::string_view name) {
    if (Holds(kCppKeywords, name)) return "a keyword of C++";
    if (Holds(kAidlWords, name)) return "a word of the language";
    if (IsUsedByGeneratedCode(name)) return "used by the generated code";
    if (name.front() == '_' || name.find("__") != std::string_view::npos) {
        return "reserved: names neither start with '_' nor hold '__'";
    }
    return {};
}

bool IsTakenMember(TypeDecl::Kind kind, std::string_view name) {
    switch (kind) {
        case TypeDecl::Kind::kInterface:
            return Holds(kInterfaceMembers, name) || StartsWith(name, "TRANSACTION_");
        case TypeDecl::Kind::kParcelable:
            return Holds(kParcelableMembers, name);
        case TypeDecl::Kind::kUnion:
            return Holds(kUnionMembers, name);
        case TypeDecl::Kind::kEnum:
            return false;
    }
    return false;
}

std::string StubName(const TypeDecl& type) {
    return "Bn" + Bare(type);
}
std::string ProxyName(const TypeDecl& type) {
    return "Bp" + Bare(type);
}

}  // namespace host::aidl
