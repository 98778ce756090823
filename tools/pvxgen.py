#!/usr/bin/env python3
"""Generates pvx's export surface from the manifest.

The manifest (manifest/*.manifest) is the one list of exported functions. From it
this script writes, into the build directory:

  include/pvxi.h, include/pvxi_<subsystem>.h  public prototypes, one header per
                                               source directory, a comment per family
  bind/<dir>/<file>.inc                        per-export wrappers that bind an export
                                               to its template instantiation; the family
                                               source includes its own file at its end
  dispatch/stubs.S                             the exported entry points (tail jumps
                                               through a 2-slot table) and the tables
  pvxi.map, exports.txt                        linker version script; plain export list
  internal/pvxi_paths.h                        table declarations and per-family member
                                               lists, for tests that call each path
  internal/pvxi_impl.h                         the per-path implementations, for families
                                               that fall back on another family
  sources.cmake                                the sources to compile, by how they are built
  units/<dir>/<file>_<type>.cpp                one unit per element type of a split source

Manifest syntax (one statement per line, '#' starts a comment):

  signature NAME RET (PARAMS)
      A prototype shape. $T stands for the element type of a one-type member,
      $S and $D for the source and destination types of a two-type member.
  family NAME SOURCE [single] [split]
      Starts a family implemented in src/SOURCE. 'single' families are built once
      with baseline flags and both dispatch slots hold the same implementation;
      all others are built once per code path. 'split' compiles the source once
      per source element type (a generated unit defines PVX_UNIT_<type>, e.g.
      PVX_UNIT_16s, and includes the source; each unit binds only its members),
      which keeps the translation units of very large families small.
  doc TEXT             One-line description for the public header.
  types SUFFIX...      Element types for the descriptor lines that follow
                       ('8u', or a pair such as '8u16s').
  variant WORD         A variant word for the descriptor lines that follow, placed
                       between the family and the type: pvxiNorm_L2_8u_C1R
                       ('variant -' removes it).
  DESCRIPTOR SIGNATURE BINDING
      Adds pvxi<Family>_<type>_<DESCRIPTOR> for every type in effect. BINDING is
      the C++ callable the wrapper forwards all arguments to ($T, $S, $D allowed).
  export NAME SIGNATURE BINDING
      Adds one export under exactly NAME (for names without type or descriptor).

Only the Python standard library is used. Files are rewritten only when their
content changes, so regenerating does not force a rebuild.
"""

import argparse
import os
import re
import sys

CTYPES = {
    "1u": "Pvx8u", "8u": "Pvx8u", "8s": "Pvx8s", "16u": "Pvx16u", "16s": "Pvx16s",
    "24u": "Pvx24u", "32u": "Pvx32u", "32s": "Pvx32s", "64s": "Pvx64s",
    "32f": "Pvx32f", "64f": "Pvx64f", "16sc": "Pvx16sc", "16uc": "Pvx16uc",
    "32sc": "Pvx32sc", "32fc": "Pvx32fc",
}
TYPE_TOKEN = re.compile(r"\d+(?:sc|uc|fc|u|s|f)")
PATHS = ("v8", "s8")
GENERATED = "Generated from the export manifest by tools/pvxgen.py: do not edit."


class ManifestError(Exception):
    pass


class Signature:
    def __init__(self, name, ret, params, where):
        self.name, self.ret, self.params, self.where = name, ret, params, where
        self.arg_names = []
        for p in split_params(params):
            m = re.search(r"(\w+)\s*(\[[^\]]*\])?\s*$", p)
            if not m or p.strip() == "void":
                raise ManifestError(f"{where}: cannot find the parameter name in '{p}'")
            self.arg_names.append(m.group(1))


class Export:
    def __init__(self, name, family, signature, binding, types, unit):
        self.name, self.family, self.signature = name, family, signature
        self.binding = binding
        self.src_type, self.dst_type = types
        self.unit = unit  # suffix of the source element type, such as 16s

    def subst(self, text):
        text = text.replace("$S", self.src_type).replace("$D", self.dst_type)
        if "$T" in text:
            if self.src_type != self.dst_type:
                raise ManifestError(f"{self.name}: $T used with two element types")
            text = text.replace("$T", self.src_type)
        if "$" in text:
            raise ManifestError(f"{self.name}: unknown placeholder in '{text}'")
        return text

    @property
    def ret(self):
        return self.subst(self.signature.ret)

    @property
    def params(self):
        return self.subst(self.signature.params) or "void"

    @property
    def call(self):
        return f"{self.subst(self.binding)}({', '.join(self.signature.arg_names)})"


class Family:
    def __init__(self, name, source, single, split, where):
        self.name, self.source, self.single, self.split, self.where = name, source, single, split, where
        self.doc = ""
        self.exports = []

    @property
    def subsystem(self):
        return self.source.split("/")[0]


def split_params(params):
    out, depth, cur = [], 0, ""
    for ch in params:
        if ch in "([":
            depth += 1
        elif ch in ")]":
            depth -= 1
        if ch == "," and depth == 0:
            out.append(cur.strip())
            cur = ""
        else:
            cur += ch
    if cur.strip():
        out.append(cur.strip())
    return out


def first_type(suffix):
    return TYPE_TOKEN.findall(suffix)[0]


def type_pair(suffix, where):
    tokens = TYPE_TOKEN.findall(suffix)
    if "".join(tokens) != suffix or not 1 <= len(tokens) <= 2 or any(t not in CTYPES for t in tokens):
        raise ManifestError(f"{where}: unknown element type '{suffix}'")
    return CTYPES[tokens[0]], CTYPES[tokens[-1]]


def parse(paths):
    signatures, families, names = {}, [], set()
    for path in paths:
        family, types, variant = None, [], ""
        with open(path, encoding="utf-8") as f:
            for lineno, raw in enumerate(f, 1):
                where = f"{os.path.basename(path)}:{lineno}"
                line = raw.split("#", 1)[0].strip()
                if not line:
                    continue
                word, _, rest = line.partition(" ")
                rest = rest.strip()
                if word == "signature":
                    m = re.fullmatch(r"(\w+)\s+(.+?)\s*\((.*)\)", rest)
                    if not m:
                        raise ManifestError(f"{where}: signature NAME RET (PARAMS)")
                    if m.group(1) in signatures:
                        raise ManifestError(f"{where}: signature {m.group(1)} defined twice")
                    signatures[m.group(1)] = Signature(m.group(1), m.group(2), m.group(3).strip(), where)
                elif word == "family":
                    parts = rest.split()
                    flags = parts[2:]
                    if len(parts) < 2 or any(f not in ("single", "split") for f in flags):
                        raise ManifestError(f"{where}: family NAME SOURCE [single] [split]")
                    family = Family(parts[0], parts[1], "single" in flags, "split" in flags, where)
                    families.append(family)
                    types, variant = [], ""
                elif family is None:
                    raise ManifestError(f"{where}: '{word}' outside a family")
                elif word == "doc":
                    family.doc = rest
                elif word == "variant":
                    if not re.fullmatch(r"[A-Za-z0-9]+|-", rest):
                        raise ManifestError(f"{where}: variant WORD")
                    variant = "" if rest == "-" else rest
                elif word == "types":
                    types = rest.split()
                    for t in types:
                        type_pair(t, where)
                else:
                    parts = rest.split(None, 1)
                    if len(parts) != 2:
                        raise ManifestError(f"{where}: expected DESCRIPTOR SIGNATURE BINDING")
                    sig_name, binding = parts[0], parts[1].strip()
                    if word == "export":
                        sig_name, binding = binding.split(None, 1)
                    sig = signatures.get(sig_name)
                    if sig is None:
                        raise ManifestError(f"{where}: unknown signature '{sig_name}'")
                    if word == "export":
                        if family.split:
                            raise ManifestError(f"{where}: a split family has no untyped exports")
                        members = [(parts[0], ("void", "void"), None)]
                    else:
                        if not types:
                            raise ManifestError(f"{where}: descriptor line before 'types'")
                        prefix = f"pvxi{family.name}_" + (f"{variant}_" if variant else "")
                        members = [(f"{prefix}{t}_{word}", type_pair(t, where), first_type(t)) for t in types]
                    for name, pair, unit in members:
                        if name in names:
                            raise ManifestError(f"{where}: {name} exported twice")
                        names.add(name)
                        family.exports.append(Export(name, family, sig, binding, pair, unit))
    for fam in families:
        if not fam.exports:
            raise ManifestError(f"{fam.where}: family {fam.name} has no members")
    return families


# ---------------------------------------------------------------- writers

def write_if_changed(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    except FileNotFoundError:
        pass
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def subsystem_header(subsystem, families):
    guard = f"PVXI_{subsystem.upper()}_H"
    out = [f"/* {GENERATED} */", f"#ifndef {guard}", f"#define {guard}", "",
           '#include "pvxtypes.h"', "", "PVX_EXTERN_C_BEGIN", ""]
    for fam in families:
        out.append(f"/* {fam.name}: {fam.doc} */" if fam.doc else f"/* {fam.name} */")
        for e in fam.exports:
            out.append(f"{e.ret} PVX_CALL {e.name}({e.params});")
        out.append("")
    out += ["PVX_EXTERN_C_END", "", f"#endif /* {guard} */", ""]
    return "\n".join(out)


def umbrella_header(subsystems):
    out = [f"/* {GENERATED} */",
           "/* pvxi — image-processing primitives. Include this one header. */",
           "#ifndef PVXI_H", "#define PVXI_H", "", '#include "pvxtypes.h"', '#include "pvxcore.h"']
    out += [f'#include "pvxi_{s}.h"' for s in subsystems]
    out += ["", "#endif /* PVXI_H */", ""]
    return "\n".join(out)


def binding_file(source, families):
    out = [f"// {GENERATED}", f"// Wrappers binding each export of src/{source} to its implementation.",
           "PVX_BEGIN", ""]
    split = any(f.split for f in families)
    exports = [e for fam in families for e in fam.exports]
    if split:  # one block per unit
        order = source_units(families)[families[0].source]
        exports.sort(key=lambda e: order.index(e.unit))
    unit = None
    for e in exports:
        if split and e.unit != unit:
            if unit is not None:
                out.append("#endif")
            unit = e.unit
            out.append(f"#ifdef PVX_UNIT_{unit}")
        body = f"return {e.call};" if e.ret != "void" else f"{e.call};"
        out.append(f'extern "C" {e.ret} PVX_CALL PVX_IMPL({e.name})({e.params})')
        out.append(f"{{ {body} }}")
    if unit is not None:
        out.append("#endif")
    out += ["", "PVX_END", ""]
    return "\n".join(out)


def stubs_asm(families):
    exports = [e for fam in families for e in fam.exports]
    out = [f"/* {GENERATED} */", """
/* Every export is a stub that reads the path selector (0: v8, 1: s8, set once
 * by the load-time entry routine) and jumps through slot [selector] of its own
 * table. The caller's arguments and return address stay untouched, so the
 * implementation returns straight to the caller and, on 32-bit x86, pops the
 * arguments itself (stdcall). */

#if defined(__x86_64__)

.macro PVX_STUB name
    .globl \\name
    .type \\name, @function
    .p2align 4
\\name:
    movslq pvx_path_selector(%rip), %rax
    leaq pvx_tbl_\\name(%rip), %r11
    jmp *(%r11,%rax,8)
    .size \\name, .-\\name
.endm

.macro PVX_TABLE name, impl0, impl1
    .globl pvx_tbl_\\name
    .hidden pvx_tbl_\\name
    .type pvx_tbl_\\name, @object
    .p2align 4
pvx_tbl_\\name:
    .quad \\impl0, \\impl1
    .size pvx_tbl_\\name, 16
.endm

#elif defined(__i386__)

/* Position-independent 32-bit code has no PC-relative data access: the stub
 * fetches its own address through a thunk that returns at once, then jumps.
 * eax and ecx are scratch registers under stdcall. */
.macro PVX_STUB name
    .globl \\name
    .type \\name, @function
    .p2align 4
\\name:
    call pvx_pc_thunk_cx
    addl $_GLOBAL_OFFSET_TABLE_, %ecx
    movl pvx_path_selector@GOTOFF(%ecx), %eax
    jmp *pvx_tbl_\\name@GOTOFF(%ecx,%eax,4)
    .size \\name, .-\\name
.endm

.macro PVX_TABLE name, impl0, impl1
    .globl pvx_tbl_\\name
    .hidden pvx_tbl_\\name
    .type pvx_tbl_\\name, @object
    .p2align 3
pvx_tbl_\\name:
    .long \\impl0, \\impl1
    .size pvx_tbl_\\name, 8
.endm

    .text
    .globl pvx_pc_thunk_cx
    .hidden pvx_pc_thunk_cx
    .type pvx_pc_thunk_cx, @function
pvx_pc_thunk_cx:
    movl (%esp), %ecx
    ret
    .size pvx_pc_thunk_cx, .-pvx_pc_thunk_cx

#else
#error "pvx dispatch stubs exist for x86 and x86-64 only"
#endif

    .hidden pvx_path_selector
"""]
    out.append("    .text")
    out += [f"    PVX_STUB {e.name}" for e in exports]
    out.append("")
    out.append('    .section .data.rel.ro,"aw"')
    for fam in families:
        for e in fam.exports:
            impls = [f"pvx_base_{e.name}"] * 2 if fam.single else [f"pvx_{p}_{e.name}" for p in PATHS]
            out.append(f"    PVX_TABLE {e.name}, {impls[0]}, {impls[1]}")
    out.append("")
    out.append('    .section .note.GNU-stack,"",@progbits')
    out.append("")
    return "\n".join(out)


def paths_header(families):
    out = [f"// {GENERATED}",
           "// For tests: the dispatch tables, to call one code path's implementation of",
           "// an export directly, and each family's members as X-macro lists.",
           "#pragma once", '#include "pvxi.h"', "",
           "#define PVX_PATH_COUNT 2",
           '#define PVX_PATH_NAMES { "v8", "s8" }',
           "// PVX_PATH_FN(pvxiCopy_8u_C1R, 1): the s8 implementation, typed as the export.",
           "#define PVX_PATH_FN(name, path) (reinterpret_cast<decltype(&name)>(pvx_tbl_##name[path]))",
           "",
           'extern "C" {']
    for fam in families:
        for e in fam.exports:
            out.append(f"extern void (*const pvx_tbl_{e.name}[2])(void);")
    out += ["}", "",
            "// PVX_MEMBERS_<Family>(X) expands X(signature, source type, destination type,",
            "// descriptor or -, export name) once per member."]
    for fam in families:
        out.append(f"#define PVX_MEMBERS_{fam.name}(X) \\")
        for e in fam.exports:
            desc = e.name.rsplit("_", 1)[1] if "_" in e.name else "-"
            out.append(f"    X({e.signature.name}, {e.src_type}, {e.dst_type}, {desc}, {e.name}) \\")
        out.append("")
    for title, single in (("PER_PATH", False), ("SHARED", True)):
        out.append(f"// Every export whose two slots hold {'one shared' if single else 'per-path'} implementation{'' if single else 's'}.")
        out.append(f"#define PVX_EXPORTS_{title}(X) \\")
        for fam in families:
            if fam.single == single:
                out.append(f"    PVX_MEMBERS_{fam.name}(X) \\")
        out.append("")
    out.append("")
    return "\n".join(out)


def impl_header(families):
    out = [f"// {GENERATED}",
           "// Each per-path export's implementation in the including translation unit's",
           "// path, for families that hand work to another family (a short-cut to Set):",
           "// they call the same path's routine, never the exported stub.",
           "#pragma once", '#include "pvxi.h"', '#include "core/path.h"', "", "PVX_BEGIN"]
    for fam in families:
        if not fam.single:
            out += [f'extern "C" {e.ret} PVX_CALL PVX_IMPL({e.name})({e.params});' for e in fam.exports]
    out += ["PVX_END", ""]
    return "\n".join(out)


def source_units(families):
    """{source: [unit types]} of the split sources, in first-seen order."""
    units = {}
    for fam in families:
        if fam.split:
            seen = units.setdefault(fam.source, [])
            seen += [u for u in dict.fromkeys(e.unit for e in fam.exports) if u not in seen]
    return units


def unit_file(source, unit):
    return f"units/{os.path.splitext(source)[0]}_{unit}.cpp"


def sources_cmake(families, srcdir, outdir):
    dual, single = [], []
    for fam in families:
        if not os.path.isfile(os.path.join(srcdir, fam.source)):
            raise ManifestError(f"{fam.where}: src/{fam.source} does not exist")
        (single if fam.single else dual).append(fam.source)
    for kind in ("single", "split"):
        for source in {f.source for f in families}:
            if len({getattr(f, kind) for f in families if f.source == source}) > 1:
                raise ManifestError(f"src/{source}: its families disagree on '{kind}'")
    units = source_units(families)
    dedup = lambda xs: sorted(set(xs))
    paths = []
    for source in dedup(dual):
        if source in units:
            paths += [os.path.join(outdir, unit_file(source, u)) for u in units[source]]
        else:
            paths.append(os.path.join(srcdir, source))
    return (f"# {GENERATED}\n"
            f"set(PVX_PATH_SOURCES {' '.join(paths)})\n"
            f"set(PVX_SINGLE_SOURCES {' '.join(os.path.join(srcdir, s) for s in dedup(single))})\n")


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--manifest-dir", required=True)
    ap.add_argument("--src-dir", required=True)
    ap.add_argument("--out-dir", required=True)
    args = ap.parse_args()

    manifests = sorted(os.path.join(args.manifest_dir, f) for f in os.listdir(args.manifest_dir)
                       if f.endswith(".manifest"))
    try:
        families = parse(manifests)
        cmake = sources_cmake(families, os.path.abspath(args.src_dir), os.path.abspath(args.out_dir))
    except ManifestError as err:
        sys.exit(f"pvxgen: {err}")

    out = args.out_dir
    subsystems = []
    for fam in families:
        if fam.subsystem not in subsystems:
            subsystems.append(fam.subsystem)
    for s in subsystems:
        write_if_changed(os.path.join(out, "include", f"pvxi_{s}.h"),
                         subsystem_header(s, [f for f in families if f.subsystem == s]))
    write_if_changed(os.path.join(out, "include", "pvxi.h"), umbrella_header(subsystems))
    for source in sorted({f.source for f in families}):
        inc = os.path.splitext(source)[0] + ".inc"
        write_if_changed(os.path.join(out, "bind", inc),
                         binding_file(source, [f for f in families if f.source == source]))
    for source, units in source_units(families).items():
        for u in units:
            write_if_changed(os.path.join(out, unit_file(source, u)),
                             f"// {GENERATED}\n"
                             "// A unit binds only its element type's members: helpers that only\n"
                             "// other units use are expected to stay unused here.\n"
                             '#pragma GCC diagnostic ignored "-Wunused-function"\n'
                             f"#define PVX_UNIT_{u}\n#include \"{source}\"\n")
    write_if_changed(os.path.join(out, "dispatch", "stubs.S"), stubs_asm(families))
    names = [e.name for f in families for e in f.exports]
    write_if_changed(os.path.join(out, "pvxi.map"),
                     "PVXI_8 {\n  global:\n" + "".join(f"    {n};\n" for n in names) + "  local: *;\n};\n")
    write_if_changed(os.path.join(out, "exports.txt"), "".join(f"{n}\n" for n in sorted(names)))
    write_if_changed(os.path.join(out, "internal", "pvxi_paths.h"), paths_header(families))
    write_if_changed(os.path.join(out, "internal", "pvxi_impl.h"), impl_header(families))
    write_if_changed(os.path.join(out, "sources.cmake"), cmake)


if __name__ == "__main__":
    main()
