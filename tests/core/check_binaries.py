#!/usr/bin/env python3
"""Checks of the built library that only its binaries can answer.

1. The dynamic symbol table exports exactly the manifest's functions.
2. Exported entries are frame-less stubs: an indirect tail jump, no call (on
   32-bit x86 only the call of the PC thunk, which returns before the jump),
   no stack adjustment.
3. The v8 path's objects use no instruction above SSSE3, and no MOVBE.
"""

import argparse
import re
import subprocess
import sys

# Mnemonics of extensions beyond SSSE3 that a compiler could emit. AVX and
# later encodings all start with 'v' (vmovdqa, vpshufb, ...) or 'k' (mask ops).
BEYOND_SSSE3 = re.compile(
    r"^(movbe|crc32|popcnt|lzcnt|tzcnt|andn|bextr|blsi|blsmsk|blsr|bzhi|mulx|pdep|pext|rorx|sarx|shlx|shrx"
    r"|adcx|adox|pblendvb|pblendw|blendps|blendpd|blendvps|blendvpd|dpps|dppd|extractps|insertps|movntdqa"
    r"|mpsadbw|packusdw|pcmpeqq|pcmpgtq|pcmp[ei]str[im]|pextr[bdq]|pinsr[bdq]|phminposuw"
    r"|pmaxs[bd]|pmaxu[wd]|pmins[bd]|pminu[wd]|pmovsx\w+|pmovzx\w+|pmuldq|pmulld|ptest"
    r"|round[ps][sd]|aes\w+|pclmul\w*|sha\w+|v\w+|k[a-z]+[bwdq]|xgetbv)$")


def run(*cmd):
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout


def check_exports(library, exports_file):
    expected = set(open(exports_file).read().split())
    defined, other = set(), []
    for line in run("nm", "-D", "--defined-only", library).splitlines():
        parts = line.split()
        if len(parts) < 3:
            continue
        kind, name = parts[1], parts[2].split("@")[0]
        if kind == "A":  # the version node
            continue
        if kind in "Tt":
            defined.add(name)
        else:
            other.append(f"{kind} {name}")
    errors = [f"exported but not in the manifest: {n}" for n in sorted(defined - expected)]
    errors += [f"in the manifest but not exported: {n}" for n in sorted(expected - defined)]
    errors += [f"unexpected dynamic symbol: {o}" for o in other]
    return errors, len(defined)


def check_stubs(library, exports_file):
    names = sorted(open(exports_file).read().split())
    sample = {names[0], names[-1], names[len(names) // 2], "pvxiGetLibVersion"}
    disasm = run("objdump", "-d", "--no-show-raw-insn", library)
    errors = []
    for name in sorted(sample):
        m = re.search(rf"<{re.escape(name)}>:\n(.*?)(?:\n\n|\Z)", disasm, re.S)
        if not m:
            errors.append(f"{name}: no code found")
            continue
        body = [l.split("\t", 1)[-1].strip() for l in m.group(1).splitlines() if "\t" in l]
        # The stub ends at its first jump; what follows is alignment padding.
        end = next((i for i, b in enumerate(body) if b.startswith("jmp")), None)
        if end is None:
            errors.append(f"{name}: no jump: {body}")
            continue
        body = body[: end + 1]
        calls = [b for b in body if b.startswith("call") and "pvx_pc_thunk" not in b]
        frames = [b for b in body if re.match(r"(push|pop|enter|leave|ret|sub\s+\$0x[0-9a-f]+,%[er]sp)", b)]
        if not re.match(r"jmp\s+\*", body[-1]) or calls or frames:
            errors.append(f"{name}: not a frame-less tail jump: {body}")
    return errors, len(sample)


def check_isa(objects):
    errors, instructions = [], 0
    for obj in objects:
        for line in run("objdump", "-d", "--no-show-raw-insn", obj).splitlines():
            parts = line.split("\t")
            if len(parts) < 2 or not re.match(r"\s*[0-9a-f]+:$", parts[0]):
                continue
            mnemonic = parts[1].split()[0] if parts[1].split() else ""
            instructions += 1
            if BEYOND_SSSE3.match(mnemonic):
                errors.append(f"{obj}: {parts[1].strip()}")
    if instructions == 0:
        errors.append("no instructions disassembled from the v8 objects")
    return errors, instructions


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--library", required=True)
    ap.add_argument("--exports", required=True)
    ap.add_argument("--v8-objects", required=True, help="semicolon-separated object files")
    args = ap.parse_args()

    failed = 0
    for title, (errors, count) in (
        ("exported symbols equal the manifest", check_exports(args.library, args.exports)),
        ("stubs are tail jumps", check_stubs(args.library, args.exports)),
        ("v8 objects stay within SSSE3", check_isa([o for o in args.v8_objects.split(";") if o])),
    ):
        status = "ok" if not errors else "FAILED"
        print(f"{title}: {status} ({count} checked)")
        for e in errors[:20]:
            print(f"  {e}")
        failed += bool(errors)
    print(f"{3 - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
