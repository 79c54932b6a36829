#!/usr/bin/env python3
"""Fails on includes of which nothing is used.

usage: unusedIncludes.py [--root FOLDER]

A header of the tree is used when the file names something that the header declares: a type, a
function, a constant, an enumerator, a macro, a namespace. A header of the standard library or of the
system is used when the file names something from the table below; headers that are not in it are
left alone. Always counted as used are a source file's own header, a header that only gathers others,
what the header of a test's fixture gathers of the tree, and a line that ends in "// keep: REASON".
"""

import pathlib
import re
import sys

import treeCheck

FOLDERS = ["platform", "index", "bridge", "presentation", "extension", "sqlite", "host", "service",
           "cli", "tests", "fuzz", "bench"]
SOURCES = {".h", ".cpp"}
# Declared for compilers and systems that are not here.
LEFT_OUT = {"tests/apple", "platform/apple"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)(.*)$')
KEEP = re.compile(r"//\s*keep: \S")

# What a header of the standard library or the system is included for.
USES = {
    "algorithm": r"std::(ranges::)?(all_of|any_of|none_of|find(_if(_not)?|_end|_first_of)?|count(_if)?"
                 r"|sort|stable_sort|min|max|minmax|clamp|copy(_n|_if)?|fill(_n)?|transform|reverse"
                 r"|equal|mismatch|search|remove(_if)?|replace(_if)?|unique|rotate|partition"
                 r"|stable_partition|lower_bound|upper_bound|binary_search|equal_range|generate"
                 r"|shuffle|for_each|max_element|min_element|lexicographical_compare|includes|merge"
                 r"|set_\w+|is_sorted|nth_element|adjacent_find|swap_ranges|iter_swap|partial_sort"
                 r"|is_permutation|sample)\b",
    "array": r"std::(array|to_array)\b",
    "atomic": r"std::(atomic\w*|memory_order\w*)\b",
    "cerrno": r"\berrno\b|\bE[A-Z0-9]{2,}\b",
    "charconv": r"std::(from_chars|to_chars)\b",
    "chrono": r"\bchrono\b|\b\d+(ms|s|us|ns|min|h)\b",
    "cmath": r"std::(abs|floor|ceil|round|lround|sqrt|log\w*|pow|exp|isnan|isfinite|fmod|trunc|hypot|sin|cos)\b",
    "condition_variable": r"std::condition_variable",
    "csignal": r"std::(signal|raise|sig_atomic_t)|\bSIG[A-Z]+\b|\bsig\w+\(",
    "cstdio": r"\b(std::)?(f?printf|snprintf|fputs|fputc|fflush|fopen|fclose|fread|fwrite|perror|puts|"
              r"remove|rename(at2?)?|FILE|stdout|stderr|stdin|EOF|vsnprintf|fdopen|fileno|getline|rewind)\b",
    "cstdlib": r"\b(std::)?(getenv|exit|_Exit|abort|strto\w+|free|malloc|atoi|mkdtemp|setenv|unsetenv|"
               r"EXIT_\w+|quick_exit|realpath|system|mkstemp|mkostemp|abs|atexit|secure_getenv)\b",
    "cstring": r"\b(std::)?(str(len|cmp|ncmp|error|chr|rchr|str|dup|signal|cpy|ncpy|cspn|spn)|mem\w+)\b",
    "ctime": r"\b(std::)?(time(_t)?|tm|strftime|localtime_r|gmtime_r|timespec|clock_gettime|mktime|"
             r"timegm|nanosleep|CLOCK_\w+)\b",
    "deque": r"std::deque\b",
    "exception": r"std::(exception\w*|current_exception|rethrow_exception|make_exception_ptr|terminate|"
                 r"uncaught_exceptions|throw_with_nested|set_terminate)\b",
    "filesystem": r"\bfilesystem\b",
    "fstream": r"std::[io]?fstream\b",
    "functional": r"std::(function|hash|less|greater|ref|cref|bind|invoke|equal_to|plus|identity|not_fn|"
                  r"reference_wrapper|bind_front)\b",
    "future": r"std::(future|promise|async|shared_future|packaged_task|launch|future_status)\b",
    "initializer_list": r"std::initializer_list\b",
    "iomanip": r"std::(setw|setfill|hex|setprecision|quoted|put_time|fixed)\b",
    "iostream": r"std::(cout|cerr|cin|clog)\b",
    "iterator": r"std::(back_inserter|inserter|next|prev|distance|advance|make_move_iterator|begin|end|"
                r"istreambuf_iterator|istream_iterator|ssize|size|reverse_iterator|data)\b",
    "limits": r"std::numeric_limits\b",
    "list": r"std::list\b",
    "map": r"std::(multi)?map\b",
    "memory": r"std::(unique_ptr|shared_ptr|weak_ptr|make_unique|make_shared|enable_shared_from_this|"
              r"addressof|static_pointer_cast|dynamic_pointer_cast|default_delete|allocator)\b",
    "mutex": r"std::(\w*mutex|lock_guard|unique_lock|scoped_lock|once_flag|call_once|lock|adopt_lock|"
             r"defer_lock|try_to_lock)\b",
    "numeric": r"std::(accumulate|iota|reduce|inner_product|gcd|midpoint|partial_sum)\b",
    "optional": r"std::(optional|nullopt|make_optional)\b",
    "random": r"std::(\w*_engine|mt19937\w*|minstd_rand\w*|random_device|\w+_distribution)\b",
    "regex": r"std::(regex|smatch|cmatch)",
    "set": r"std::(multi)?set\b",
    "shared_mutex": r"std::shared_(mutex|lock|timed_mutex)\b",
    "sstream": r"std::[io]?stringstream\b",
    "stdexcept": r"std::(runtime_error|logic_error|invalid_argument|out_of_range|length_error|"
                 r"domain_error|overflow_error|range_error)\b",
    "string": r"std::(string\b|to_string|stoi|stol|stoul\w*|stoll|stod|getline|basic_string)",
    "string_view": r"std::string_view\b|\b\w*\"sv\b",
    "system_error": r"std::(system_error|error_code|generic_category|system_category|errc|make_error\w+)",
    "thread": r"std::(thread|this_thread|jthread|stop_token)\b|\bthis_thread\b",
    "tuple": r"std::(tuple|tie|make_tuple|get|apply|ignore|forward_as_tuple)\b",
    "type_traits": r"std::(is_\w+|enable_if\w*|decay\w*|remove_\w+|conditional\w*|invoke_result\w*|"
                   r"underlying_type\w*|true_type|false_type|void_t|integral_constant|make_\w+signed\w*)",
    "unordered_map": r"std::unordered_(multi)?map\b",
    "unordered_set": r"std::unordered_(multi)?set\b",
    "utility": r"std::(move|forward|swap|exchange|pair|make_pair|declval|as_const|cmp_\w+|in_place\w*|"
               r"index_sequence\w*|unreachable|to_underlying|get|piecewise_construct)\b",
    "variant": r"std::(variant|visit|get_if|get|holds_alternative|monostate)\b",
    "vector": r"std::vector\b",
    "fcntl.h": r"\b(O_[A-Z]+|F_[A-Z_]+|AT_[A-Z_]+|open(at)?|fcntl|fallocate|FALLOC_\w+|creat|"
               r"sync_file_range|posix_fad\w+|S_I\w+)\b",
    "unistd.h": r"::(close|read|write|pread|pwrite|unlink\w*|getpid|getuid|geteuid|getgid|getppid|dup\w*|"
                r"pipe2?|fork|exec\w+|_exit|rmdir|access|faccessat|ftruncate|truncate|fsync|fdatasync|"
                r"gethostname|isatty|sleep|usleep|readlink\w*|link\w*|symlink\w*|lseek\w*|chdir|fchdir|"
                r"getcwd|sysconf|copy_file_range|fchown\w*|chown|setsid|syncfs|sync|alarm|kill|environ|"
                r"getopt|lockf|fchownat|linkat|syscall|pause|getegid|pathconf|fpathconf|setpgid)\b"
                r"|\b(STD(IN|OUT|ERR)_FILENO|[FRWX]_OK|_SC_\w+|_exit|isatty|close|read|write|unlink|"
                r"getpid|gettid|pipe2?|dup2?|SEEK_\w+|fork|rmdir|access|getuid|pid_t|syscall|fsync|fdatasync)\b",
}


def codeOf(text):
    """The text without comments and without what is in string literals but their quotes."""
    text = re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL)
    return re.sub(r'"(?:\\.|[^"\\\n])*"', '""', text)


DECLARATIONS = [
    re.compile(r"\b(?:class|struct|union|enum(?:\s+class)?)\s+(?:TULO_\w+(?:\([^)]*\))?\s+)*(\w+)"),
    re.compile(r"\busing\s+(\w+)\s*="),
    re.compile(r"\busing\s+(?:\w+::)+(\w+)\s*;"),
    re.compile(r"\btypedef\b[^;]*?(\w+)\s*;"),
    re.compile(r"^\s*#\s*define\s+(\w+)", re.MULTILINE),
    re.compile(r"\bconcept\s+(\w+)"),
    re.compile(r"(?:^|[\s*&>])(\w+)\s*\("),
    re.compile(r"\b(?:constexpr|const|inline|extern)\b[^;{}()=]*?\b(\w+)\s*(?:=|\{|;|\[)"),
    re.compile(r"\bnamespace\s+(?:\w+::)*(\w+)\s*\{"),
    re.compile(r"^\s*(\w+)\s*(?:=[^,;(){}]*)?,?\s*$", re.MULTILINE),
]
COMMON = {"tulo", "if", "for", "while", "switch", "return", "operator", "sizeof", "defined", "const",
          "explicit", "static", "test", "host", "public", "private", "protected", "noexcept", "std",
          "get", "size", "value", "empty", "begin", "end", "function", "optional", "vector", "string",
          "attribute", "decltype", "alignof", "catch", "requires", "override", "default", "true",
          "false", "nullptr", "void", "int", "bool", "char"}


def declaredIn(text):
    """The names that a header gives to those who include it: a little too many, never too few."""
    code = codeOf(text)
    names = {name for pattern in DECLARATIONS for name in pattern.findall(code)}
    return {name for name in names if name not in COMMON and not name.isdigit()}


def includesOf(text):
    for number, line in enumerate(text.splitlines(), start=1):
        found = INCLUDE.match(line)
        if found:
            yield number, found.group(1), found.group(2), bool(KEEP.search(found.group(3)))


def isOwnHeader(name, header):
    """Whether the header is the one that the source file, or the test of it, is about."""
    stem = pathlib.PurePath(name).stem
    return pathlib.PurePath(header).stem in {stem, stem.removesuffix("Test")}


def onlyGathers(text):
    """Whether a header declares nothing itself."""
    return not re.sub(r"^\s*#.*$", "", codeOf(text), flags=re.MULTILINE).strip()


def isFixture(name):
    return name.startswith("tests/") and name.endswith(".h")


def faultsOf(name, text, headers):
    body = codeOf("\n".join(line for line in text.splitlines() if not INCLUDE.match(line)))
    words = set(re.findall(r"\w+", body))
    for number, own, outside, kept in includesOf(text):
        if kept:
            continue
        if own is not None:
            if (own in headers and not isFixture(name) and not isOwnHeader(name, own)
                    and not headers[own] & words):
                yield f'{name}:{number}: nothing of "{own}" is used'
        elif outside in USES and not re.search(USES[outside], body):
            yield f"{name}:{number}: nothing of <{outside}> is used"


def sourcesIn(root):
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            name = path.relative_to(root).as_posix()
            if path.suffix in SOURCES and not any(name.startswith(f + "/") for f in LEFT_OUT):
                yield name, path.read_text(encoding="utf-8")


def check(root):
    """All faults of the tree, and how many files were read."""
    texts = dict(sourcesIn(root))
    headers = {name: declaredIn(text) for name, text in texts.items()
               if name.endswith(".h") and not onlyGathers(text)}
    faults = [fault for name, text in texts.items() for fault in faultsOf(name, text, headers)]
    return faults, len(texts)


def look(root):
    faults, count = check(root)
    return faults, count, [f"{count} files read, {len(faults)} includes without use"]


def main():
    return treeCheck.run(__doc__, look)


if __name__ == "__main__":
    sys.exit(main())
