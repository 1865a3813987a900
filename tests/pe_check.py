#!/usr/bin/python3
"""pe_check.py PROGRAM VERSION: checks that the Windows program can start,
safely, on a Windows 10 or 11 machine, not only under Wine.

Fails (exit code 1, one line per finding) on:
- an import, direct or delay-loaded, of a DLL that a Windows 10/11 machine
  doesn't have (Wine has more DLLs than Windows: zlib1.dll, for one);
- a direct import of a DLL that isn't a KnownDLL: the loader would look for
  it in the program's folder first, where anybody may have put one;
- a manifest that doesn't ask for elevation, common controls 6, per-monitor
  (v2) DPI awareness, Windows 10/11, the UTF-8 code page or long paths;
- missing version information (the program's name and VERSION), a missing
  icon, a load configuration without DependentLoadFlags, or debug
  information left in the program.

Runs with Debian's python3-pefile (/usr/bin/python3)."""
import struct
import sys
import xml.etree.ElementTree as ElementTree

import pefile

# KnownDLLs: Microsoft's documentation of the DLL search order defines them
# as the values of HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\
# KnownDLLs and publishes no list of its own
# (https://learn.microsoft.com/windows/win32/dlls/dynamic-link-library-search-order,
# "Known DLLs"). These are the values that key holds on Windows 10 (22H2)
# and Windows 11 (23H2); the wow64 and CPU emulation entries are left out.
KNOWN_DLLS = {
    "advapi32.dll", "clbcatq.dll", "combase.dll", "comdlg32.dll", "coml2.dll", "difxapi.dll", "gdi32.dll",
    "gdiplus.dll", "imagehlp.dll", "imm32.dll", "kernel32.dll", "msctf.dll", "msvcrt.dll", "normaliz.dll",
    "nsi.dll", "ole32.dll", "oleaut32.dll", "psapi.dll", "rpcrt4.dll", "sechost.dll", "setupapi.dll",
    "shcore.dll", "shell32.dll", "shlwapi.dll", "user32.dll", "wldap32.dll", "ws2_32.dll",
}

# DLLs that every Windows 10 and 11 desktop has: Microsoft's own list for
# its dependency checker, microsoft/Xbox-GDK-Samples,
# Samples/Tools/xbdepends/KnownDLLs.h (c_CoreOS, c_Win32, c_SystemOS and
# c_PCOnly), and the KnownDLLs above.
SYSTEM_DLLS = KNOWN_DLLS | {
    # c_CoreOS
    "avrt.dll", "bcrypt.dll", "cabinet.dll", "cfgmgr32.dll", "crypt32.dll", "dbghelp.dll", "dhcpcsvc.dll",
    "dnsapi.dll", "iphlpapi.dll", "mswsock.dll", "ncrypt.dll", "ntdll.dll", "powrprof.dll", "secur32.dll",
    "sspicli.dll", "ucrtbase.dll", "userenv.dll", "windowscodecs.dll", "winhttp.dll", "wsock32.dll",
    "xmllite.dll",
    # c_SystemOS
    "credui.dll", "dxva2.dll", "esent.dll", "hid.dll", "propsys.dll", "uiautomationcore.dll", "urlmon.dll",
    "wininet.dll", "wintrust.dll", "winusb.dll",
    # c_PCOnly
    "comctl32.dll", "cryptui.dll", "dwmapi.dll", "msi.dll", "netapi32.dll", "oleacc.dll", "opengl32.dll",
    "pdh.dll", "usp10.dll", "uxtheme.dll", "version.dll", "winmm.dll", "winspool.drv", "wtsapi32.dll",
}

WINDOWS_10_AND_11 = "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"
LOAD_LIBRARY_SEARCH_SYSTEM32 = 0x800

findings = []


def fail(text):
    findings.append(text)


def delay_loaded(pe):
    """The DLL names of the delay-import descriptors. GNU ld doesn't fill in
    the data directory's entry for them, so they are found by their form:
    eight 32-bit fields, attributes 1 (addresses are RVAs), a name, a module
    handle, an address table and a name table inside the image, and zeros
    for the bound and unload tables and the time stamp."""
    size = pe.OPTIONAL_HEADER.SizeOfImage
    names = set()
    for section in pe.sections:
        data = section.get_data()
        for offset in range(0, len(data) - 32, 4):
            fields = struct.unpack_from("<8I", data, offset)
            if fields[0] != 1 or fields[5] or fields[6] or fields[7]:
                continue
            if not all(0 < rva < size for rva in fields[1:5]):
                continue
            try:
                name = pe.get_string_at_rva(fields[1], 64).decode("ascii")
            except (UnicodeDecodeError, pefile.PEFormatError):
                continue
            if name.lower().endswith((".dll", ".drv")):
                names.add(name.lower())
    return names


def check_imports(pe):
    pe.parse_data_directories()
    direct = {entry.dll.decode().lower() for entry in getattr(pe, "DIRECTORY_ENTRY_IMPORT", [])}
    if not direct:
        fail("no import table")
    for dll in sorted(direct - SYSTEM_DLLS):
        fail(f"imports {dll}, which Windows doesn't have")
    for dll in sorted((direct & SYSTEM_DLLS) - KNOWN_DLLS):
        fail(f"imports {dll} directly, which isn't a KnownDLL: a planted copy beside the program would be loaded")
    delayed = delay_loaded(pe)
    for dll in sorted(delayed - SYSTEM_DLLS):
        fail(f"delay-loads {dll}, which Windows doesn't have")
    print(f"direct: {' '.join(sorted(direct))}")
    print(f"delay-loaded: {' '.join(sorted(delayed))}")


def resource_kinds(pe):
    directory = getattr(pe, "DIRECTORY_ENTRY_RESOURCE", None)
    return directory.entries if directory else []


def manifest_of(pe):
    for kind in resource_kinds(pe):
        if kind.id != pefile.RESOURCE_TYPE["RT_MANIFEST"]:
            continue
        for name in kind.directory.entries:
            if name.id != 1:  # the manifest that CreateProcess reads
                continue
            for language in name.directory.entries:
                data = language.data.struct
                return pe.get_data(data.OffsetToData, data.Size)
    return None


def check_manifest(pe):
    text = manifest_of(pe)
    if text is None:
        fail("no application manifest (RT_MANIFEST 1)")
        return
    try:
        root = ElementTree.fromstring(text)
    except ElementTree.ParseError as error:
        fail(f"the manifest isn't well-formed XML: {error}")
        return

    def all_named(tag):
        return [element for element in root.iter() if element.tag.split("}")[-1] == tag]

    def text_of(tag):
        found = all_named(tag)
        return (found[0].text or "").strip() if found else ""

    levels = [element.get("level") for element in all_named("requestedExecutionLevel")]
    if levels != ["requireAdministrator"]:
        fail(f"the manifest doesn't require administrator rights: {levels}")
    controls = [element for element in all_named("assemblyIdentity")
                if element.get("name") == "Microsoft.Windows.Common-Controls"]
    if not controls or not controls[0].get("version", "").startswith("6."):
        fail("the manifest doesn't ask for common controls 6")
    if "PerMonitorV2" not in text_of("dpiAwareness"):
        fail("the manifest doesn't declare per-monitor (v2) DPI awareness")
    if not text_of("dpiAware").lower().startswith("true"):
        fail("the manifest has no dpiAware fallback for older systems")
    if WINDOWS_10_AND_11 not in [element.get("Id", "").lower() for element in all_named("supportedOS")]:
        fail("the manifest doesn't name Windows 10/11 as a supported system")
    if text_of("activeCodePage") != "UTF-8":
        fail("the manifest doesn't make UTF-8 the ANSI code page")
    if text_of("longPathAware").lower() != "true":
        fail("the manifest isn't long-path aware")


def check_version_and_icon(pe, version):
    strings = {}
    for info in getattr(pe, "FileInfo", []):
        for entry in info:
            for table in getattr(entry, "StringTable", []):
                strings.update({key.decode(): value.decode() for key, value in table.entries.items()})
    for key in ("FileDescription", "ProductName", "InternalName"):
        if strings.get(key) != "qlux-setup":
            fail(f"version information: {key} is {strings.get(key)!r}, not 'qlux-setup'")
    for key in ("FileVersion", "ProductVersion"):
        if strings.get(key) != version:
            fail(f"version information: {key} is {strings.get(key)!r}, not {version!r}")
    fixed = getattr(pe, "VS_FIXEDFILEINFO", None)
    numbers = [int(part) for part in version.split(".")]
    if not fixed or (fixed[0].FileVersionMS >> 16, fixed[0].FileVersionMS & 0xFFFF,
                     fixed[0].FileVersionLS >> 16) != tuple(numbers):
        fail("the fixed version information doesn't carry the version")

    groups = [kind for kind in resource_kinds(pe) if kind.id == pefile.RESOURCE_TYPE["RT_GROUP_ICON"]]
    if not groups or not groups[0].directory.entries:
        fail("no icon")
    elif str(groups[0].directory.entries[0].name) != "QLUX_ICON":
        fail(f"the first icon (the one Explorer shows) is {groups[0].directory.entries[0].name}, not the program's")


def section_names(pe, data):
    """The sections' names; a long one ("/4") is read from the COFF string
    table behind the symbols, where the linker keeps it."""
    table = pe.FILE_HEADER.PointerToSymbolTable + 18 * pe.FILE_HEADER.NumberOfSymbols
    names = []
    for section in pe.sections:
        name = section.Name.rstrip(b"\0").decode(errors="replace")
        if name.startswith("/") and name[1:].isdigit() and pe.FILE_HEADER.PointerToSymbolTable:
            start = table + int(name[1:])
            end = data.find(b"\0", start)
            if 0 <= start < end:
                name = data[start:end].decode(errors="replace")
        names.append(name)
    return names


def check_load_config_and_debug(pe, data):
    config = getattr(pe, "DIRECTORY_ENTRY_LOAD_CONFIG", None)
    if not config:
        fail("no load configuration")
    elif config.struct.Reserved1 != LOAD_LIBRARY_SEARCH_SYSTEM32:  # DependentLoadFlags
        fail(f"DependentLoadFlags is {config.struct.Reserved1:#x}, not LOAD_LIBRARY_SEARCH_SYSTEM32")
    names = section_names(pe, data)
    if any(name.startswith(".debug") for name in names) or pe.FILE_HEADER.NumberOfSymbols:
        fail(f"debug information or symbols left in the program: {names}")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    program, version = sys.argv[1], sys.argv[2]
    with open(program, "rb") as image:
        data = image.read()
    pe = pefile.PE(data=data, fast_load=True)
    check_imports(pe)
    pe.parse_data_directories(directories=[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"],
                                           pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_LOAD_CONFIG"]])
    check_manifest(pe)
    check_version_and_icon(pe, version)
    check_load_config_and_debug(pe, data)
    for finding in findings:
        print(f"FAILED: {finding}")
    if findings:
        sys.exit(1)
    print("the program's imports, manifest, version information, icon and load configuration are as Windows needs them")


if __name__ == "__main__":
    main()
