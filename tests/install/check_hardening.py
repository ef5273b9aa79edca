"""What the products were hardened with: check_hardening.py BUILD_FOLDER [readelf]"""
import pathlib
import subprocess
import sys

build = pathlib.Path(sys.argv[1])
readelf = sys.argv[2] if len(sys.argv) > 2 else "readelf"
products = [p for pattern in ("lib/*.so", "links/*.so", "links/*.dll", "bin/*")
            for p in build.glob(pattern) if p.read_bytes()[:4] == b"\x7fELF"]
assert len(products) >= 2, f"no products in {build}"

faults = []
checked = False
for product in products:
    text = subprocess.run([readelf, "-W", "-h", "-l", "-d", "-n", "--syms", product], check=True,
                          capture_output=True, text=True).stdout
    headers = [line.split() for line in text.splitlines()]
    wanted = {
        "read-only relocations": any(h[:1] == ["GNU_RELRO"] for h in headers),
        "immediate binding": "BIND_NOW" in text or "Flags: NOW" in text,
        "no executable stack": any(h[:1] == ["GNU_STACK"] and "RWE" not in h for h in headers),
        "position independence": "DYN (" in text,
    }
    # Where the code asks for it: the smallest link library has no buffer on its stack.
    if product.name in ("libTornvalC63.so", "libcecore.so", "tornval"):
        wanted["guarded stack frames"] = "__stack_chk_fail" in text
    checked |= "_chk@" in text.replace("__stack_chk_fail", "")
    if "X86-64" in text:
        # The system's own start files may lack the mark that would stand for the whole product.
        code = subprocess.run(["objdump", "-d", "--no-show-raw-insn", "-j", ".text", product],
                              check=True, capture_output=True, text=True).stdout
        wanted["control-flow protection"] = "endbr64" in code
    faults += [f"{product}: lacks {what}" for what, has in wanted.items() if not has]
if not checked:
    faults.append("no product has checked lengths")
print("\n".join(faults) or f"{len(products)} products are hardened")
sys.exit(bool(faults))
