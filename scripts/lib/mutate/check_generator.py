#!/usr/bin/env python3
"""Fails unless the generator finds exactly the changes below in a small file."""
import sys
import tempfile

import generator

SOURCE = """
struct Lock { explicit Lock(int); ~Lock(); };
struct Text { char const* characters; };
bool isLocked(int which);
void open(int which);
void close(int which);
void lock_free(int which);

bool both(int first, unsigned flags)
{
    Lock lock(first);
    if (isLocked(first)) {
        throw 7;
    }
    open(first);
    close(first);
    int unused{};
    lock_free(first + 1);
    return first < 0 && flags == (4U | flags);
}

Text text(bool isShort)
{
    Text const result{"text"};
    return isShort ? result : Text{"longer"};
}

char const* name(char const* wanted)
{
    if (!wanted)
        open(sizeof(int));
    return wanted + true;
}
"""
EXPECTED = """
guard: Lock lock(first); -> ;
condition: if (isLocked(first)) { -> if (!(isLocked(first))) {
statement: throw 7; -> ;
constant: throw 7; -> throw 8;
statement: open(first); -> ;
order: open(first); close(first); -> close(first); open(first);
statement: close(first); -> ;
operator: return first < 0 && flags == (4U | flags); -> return first <= 0 && flags == (4U | flags);
constant: return first < 0 && flags == (4U | flags); -> return first < 1 && flags == (4U | flags);
operator: return first < 0 && flags == (4U | flags); -> return first < 0 || flags == (4U | flags);
operator: return first < 0 && flags == (4U | flags); -> return first < 0 && flags != (4U | flags);
constant: return first < 0 && flags == (4U | flags); -> return first < 0 && flags == (5U | flags);
flag: return first < 0 && flags == (4U | flags); -> return first < 0 && flags == (4U);
flag: return first < 0 && flags == (4U | flags); -> return first < 0 && flags == (flags);
text: Text const result{"text"}; -> Text const result{"teyt"};
condition: return isShort ? result : Text{"longer"}; -> return !(isShort) ? result : Text{"longer"};
result: return isShort ? result : Text{"longer"}; -> return {};
text: return isShort ? result : Text{"longer"}; -> return isShort ? result : Text{"lonxer"};
condition: if (!wanted) -> if (wanted)
statement: open(sizeof(int)); -> ;
operator: return wanted + true; -> return wanted - true;
constant: return wanted + true; -> return wanted + false;
result: return wanted + true; -> return nullptr;
"""

with tempfile.NamedTemporaryFile("w", suffix=".cpp") as file:
    file.write(SOURCE)
    file.flush()
    found = [f"{mutant.kind}: {' -> '.join(mutant.change(SOURCE.encode()))}"
             for mutant in generator.mutants_of(file.name, ["-std=c++17"])]
wrong = sorted(set(found) ^ set(EXPECTED.strip().splitlines()))
if wrong:
    sys.exit("The generator of mutants is wrong about:\n" + "\n".join(wrong))
