#!/usr/bin/env python3
"""The project's rules that no compiler knows. Each prints its findings, one a line; the exit status is 1 when
there is one.

    rules.py RULE        layers | messages | texts | lengths | words
    rules.py objects BUILD-FOLDER
    rules.py hooks PROGRAM
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCE_KINDS = {".cpp", ".h", ".def"}
LONGEST_FILE = 500

# Which objects alone may refer to which functions of the C library; a "*" stands for any ending. The log opens its
# files itself, so that a planned failure of "open" is still logged; a child about to start a program may do little else.
ONE_OBJECT = (
    ("core/sys/identity", "seteuid setegid setuid setgid setreuid setregid setresuid setresgid setgroups initgroups setfsuid "
                     "setfsgid"),
    ("core/sys/sys", "rename renameat renameat2 chmod fchmod fchmodat lchmod chown fchown fchownat lchown unlink unlinkat "
                "remove rmdir mkdir mkdirat mkfifo mkfifoat mknod mknodat link linkat symlink symlinkat truncate truncate64 "
                "ftruncate ftruncate64 creat creat64 mkstemp* mkostemp* mkdtemp tmpfile* utime utimes utimensat futimens "
                "setxattr lsetxattr fsetxattr"),
    ("core/sys/sys core/sys/log core/process/launch", "open open64 openat openat64 __open* fopen fopen64 freopen freopen64"),
    ("core/process/launch", "fork vfork _Fork clone exec* fexecve posix_spawn* system popen"),
    ("core/sys/identity core/sys/sys core/process/launch core/process/talk", "syscall"),
    ("core/sys/fail_point", "getenv secure_getenv"),
)
# The standard library's ways to do the same: nowhere.
NOWHERE = re.compile(r"^_ZNSt10filesystem.*(remove|rename|permissions|create_|copy|resize_file|last_write_time)|"
                     r"^_ZNSt1[34]basic_(o|)fstream|^_ZNSt13basic_filebuf")


def sources(*folders, kinds=SOURCE_KINDS):
    for folder in folders:
        yield from sorted(path for path in (ROOT / folder).rglob("*") if path.suffix in kinds and path.is_file())


def named(path):
    return path.relative_to(ROOT)


TOKEN = re.compile(r'''(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<raw>R"(?P<mark>[^(\s]*)\((?P<inside>.*?)\)(?P=mark)")|'''
                   r'''(?P<text>"(?:\\.|[^"\\\n])*")|(?P<character>'(?:\\.|[^'\\\n])*')|'''
                   r'''(?P<number>\d[\w'.]*)|(?P<word>[A-Za-z_]\w*?(?=R")|[A-Za-z_]\w*)|(?P<blank>(?:\s|\\\n)+)|(?P<other>.)''',
                   re.S)


def tokens(path):
    """(kind, text, line number) of everything in a C++ file."""
    text = path.read_text(encoding="utf-8")
    line = 1
    for match in TOKEN.finditer(text):
        yield match.lastgroup if match.lastgroup != "mark" else "raw", match, line
        line += match.group().count("\n")


def joined_texts(path):
    """The string literals of a file as they stand between the quotes, neighbours joined."""
    current = None
    for kind, match, _ in tokens(path):
        if match.group("text"):
            current = (current or "") + match.group("text")[1:-1]
        elif match.group("raw"):
            current = (current or "") + match.group("inside")
        elif kind not in ("comment", "blank") and current is not None:
            yield current
            current = None
    if current is not None:
        yield current


def rooms():
    """The folders of src/ that are a room of their own, as CMakeLists.txt says."""
    return set(re.findall(r"^zv_room\(([\w/]+)", (ROOT / "CMakeLists.txt").read_text(), re.M))


def includes(path):
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
        if match:
            yield number, match[1]


def rings(edges):
    """Strongly connected groups of more than one node; `edges` maps a node to those it points at."""
    def reach(start):
        found, todo = set(), [start]
        while todo:
            for node in edges.get(todo.pop(), ()):
                if node not in found:
                    found.add(node)
                    todo.append(node)
        return found
    reached = {node: reach(node) for node in edges}
    groups = {frozenset({node} | {other for other in reached[node] if node in reached.get(other, ())})
              for node in edges if node in reached[node]}
    return sorted(sorted(group) for group in groups if len(group) > 1)


def layers():
    """Every include names a room and a file, and the headers form no ring; who sees whom the build itself enforces."""
    known = rooms()
    edges = {}
    for path in sources("src"):
        own = path.relative_to(ROOT / "src")
        if own.parent.as_posix() not in known:
            yield f"{named(path)} stands in no room"
        for number, included in includes(path):
            if pathlib.PurePath(included).parent.as_posix() not in known:
                yield f"{named(path)}:{number}: \"{included}\" is not written as \"<room>/<file>\""
            other, stem = included.rsplit(".", 1)[0], own.with_suffix("").as_posix()
            if path.suffix == ".h" and other != stem:
                edges.setdefault(stem, set()).add(other)
    for ring in rings(edges):
        yield "headers include each other in a ring: " + ", ".join(ring)


def messages():
    """Every text of tests/messages.d/*.list stands in the sources, letter for letter."""
    lists = sorted(ROOT.glob("tests/messages.d/*.list"))
    if not lists:
        yield "tests/messages.d holds no list"
    code = "\n".join(text for path in sources("src") for text in joined_texts(path))
    for listed in lists:
        for number, line in enumerate(listed.read_text(encoding="utf-8").split("\n"), 1):
            if line and not line.startswith("#") and line not in code:
                yield f"{listed.relative_to(ROOT)}:{number}: not in the sources: {line}"


def texts():
    """delString frees what Text owns; only core/text calls it."""
    for path in sources("src"):
        if named(path).as_posix() in ("src/core/text/text.h", "src/core/text/text.cpp"):
            continue
        for kind, match, line in tokens(path):
            if kind == "word" and match.group() == "delString":
                yield f"{named(path)}:{line}: delString outside core/text"


def project_files():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            stdout=subprocess.PIPE, check=True).stdout.decode()
    return [ROOT / name for name in sorted(listed.split("\0")) if name and (ROOT / name).is_file()]


def lengths():
    """No file that somebody has to read grows past what fits in a head."""
    for path in project_files():
        script = path.suffix in {".py", ".sh", ".cmake"} or (named(path).parts[0] == "dev" and not path.suffix)
        if path.suffix in SOURCE_KINDS or script:
            count = len(path.read_bytes().splitlines())
            if count > LONGEST_FILE:
                yield f"{named(path)}: {count} lines, more than {LONGEST_FILE}"


def words():
    """Whoever reads this has the repository and nothing else: no text leans on something outside it."""
    listed = ROOT / "dev/lib/words.list"
    patterns = [re.compile(line) for line in listed.read_text().splitlines() if line and not line.startswith("#")]
    for path in project_files():
        if path == listed or path.name == "LICENSE" or "corpus" in path.parts:
            continue
        try:
            lines = path.read_text(encoding="utf-8").splitlines()
        except UnicodeDecodeError:
            continue
        for number, line in enumerate([str(named(path)), *lines]):
            for pattern in patterns:
                match = pattern.search(line)
                if match:
                    yield f"{named(path)}:{number}: \"{match.group()}\""


def homes_of(symbol):
    """The sources whose objects may refer to the symbol; nothing when every object may."""
    for homes, names in ONE_OBJECT:
        if any(symbol == name or (name.endswith("*") and symbol.startswith(name[:-1])) for name in names.split()):
            return homes.split()
    return []


def symbols(path, *options):
    listing = subprocess.run(["nm", *options, path], stdout=subprocess.PIPE, check=True).stdout.decode()
    return {line.split()[-1].split("@")[0] for line in listing.splitlines() if line.strip() and not line.endswith(":")}


def objects(build):
    """Identity is changed in one object, files in one, processes made in one."""
    found = 0
    for path in sources("src", kinds={".cpp"}):
        source = path.relative_to(ROOT / "src").with_suffix("").as_posix()
        # What a build folder holds of sources that are gone is nobody's concern.
        for built in pathlib.Path(build).glob(f"CMakeFiles/zv*.dir/src/{source}.cpp.o"):
            found += 1
            for symbol in sorted(symbols(built, "--undefined-only")):
                homes = homes_of(symbol)
                if homes and source not in homes:
                    yield f"{source} refers to {symbol}, which only {' and '.join(homes)} may"
                elif NOWHERE.match(symbol):
                    yield f"{source} refers to {symbol}, which nothing may"
    if not found:
        yield f"no objects below {build}"


HOOK = re.compile(r'\b(?:Fail(?:Scope|Later) \w+[({]|failPoint\(|failAction\(|getenv\()"([^"]+)"')
HOOK_FUNCTIONS = "failAction setFailPlan FailScope FailLater ZVTASKQ_".split()


def hooks(program):
    """A program as it is installed holds no fail point and asks no variable of the tests."""
    code = "\n".join(path.read_text(encoding="utf-8") for path in sources("src"))
    found = HOOK.findall(code)
    # A text that the code writes elsewhere too proves nothing, nor does the bare name of a system call.
    names = {name for name in found if code.count(f'"{name}"') == found.count(name) and re.search(r"[._]|FAIL", name)}
    if not names:
        yield "no fail point in the sources"
    content = pathlib.Path(program).read_bytes()
    for name in sorted(names):
        if re.search(rb"(?<![\w.])" + re.escape(name).encode() + rb"\0", content):
            yield f"{program} holds the text {name}"
    for name in HOOK_FUNCTIONS:
        if name.encode() in content:
            yield f"{program} holds {name}"


RULES = {"layers": layers, "messages": messages, "texts": texts, "lengths": lengths, "words": words, "objects": objects,
         "hooks": hooks}


def main(arguments):
    if not arguments or arguments[0] not in RULES:
        sys.exit(__doc__)
    findings = list(RULES[arguments[0]](*arguments[1:]))
    print("\n".join(findings), end="\n" if findings else "")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
