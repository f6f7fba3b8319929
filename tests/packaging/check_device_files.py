#!/usr/bin/env python3
"""Checks the device build files against each other and against the code: every source that
Android.bp lists exists and every service source the host builds is listed; the VINTF fragment is
well-formed XML; the service name, instance and binary path agree across the init script, the
VINTF fragment, Android.bp, the SELinux files and the code; Android.bp wraps every entry point of
driver/MoxEntryPoints.def. Prints one line per finding."""
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = "android.hardware.tv.tuner"
INTERFACE = "ITuner"
INSTANCE = "default"
findings = []


def check(condition, message):
    if not condition:
        findings.append(message)


def read(path):
    return (ROOT / path).read_text()


bp = read("Android.bp")
generated = set(re.findall(r'"(\w+\.cpp)"', "".join(re.findall(r"out: \[(.*?)\]", bp, re.S))))
bp_sources = set(re.findall(r'"([\w/]+\.cpp)"', bp)) - generated
for source in sorted(bp_sources):
    check((ROOT / source).is_file(), f"Android.bp lists {source}, which does not exist")
cmake = read("CMakeLists.txt")
service_block = re.search(r"add_library\(tuner-service STATIC(.*?)\)", cmake, re.S).group(1)
for source in service_block.split():
    check(source in bp_sources, f"{source} is built on the host but missing from Android.bp")
check('defaults: ["hidl_defaults"]' in bp, "Android.bp defaults lack hidl_defaults")
check(re.search(r"^license \{", bp, re.M) is not None, "Android.bp declares no license")
for inline_list in re.findall(r"\[([^\]\n]*,[^\]\n]*)\]", bp):
    check(False, f"Android.bp has a list of several entries on one line: [{inline_list}]")
license_texts = re.findall(r'license_text: \[\s*"([^"]+)"', bp)
for text in license_texts:
    check((ROOT / text).is_file(), f"license text {text} does not exist")

# The recorder wraps every entry point of the one list, on a device as on the host.
entry_points = re.findall(r"^MOX_ENTRY_POINT\(\w+, *(\w+),", read("driver/MoxEntryPoints.def"), re.M)
wrapped = re.findall(r'"-Wl,--wrap=(\w+)"', bp)
check(len(entry_points) > 0, "driver/MoxEntryPoints.def lists no entry point")
check(wrapped == entry_points,
      f"Android.bp wraps {wrapped}, but driver/MoxEntryPoints.def lists {entry_points}")

binary = re.search(r'cc_binary \{\s*name: "([^"]+)"', bp).group(1)
init_rc = re.search(r'init_rc: \["([^"]+)"\]', bp).group(1)
vintf = re.search(r'vintf_fragments: \["([^"]+)"\]', bp).group(1)

rc = read(init_rc)
service_line = re.search(r"^service (\S+) (\S+)", rc, re.M)
check(service_line is not None and service_line.group(2) == f"/vendor/bin/hw/{binary}",
      f"{init_rc} does not start /vendor/bin/hw/{binary}")
check(f"interface {PACKAGE}@1.0::{INTERFACE} {INSTANCE}" in rc,
      f"{init_rc} does not declare {PACKAGE}@1.0::{INTERFACE}/{INSTANCE}")
check("task_profiles" in rc and "writepid" not in rc, f"{init_rc} must use task_profiles")

try:
    hal = ElementTree.fromstring(read(vintf)).find("hal")
    check(hal.findtext("name") == PACKAGE, f"{vintf} names another package")
    check(hal.findtext("version") == "1.0", f"{vintf} gives another version")
    check(hal.findtext("transport") == "hwbinder", f"{vintf} gives another transport")
    check(hal.findtext("interface/name") == INTERFACE, f"{vintf} names another interface")
    check(hal.findtext("interface/instance") == INSTANCE, f"{vintf} names another instance")
except ElementTree.ParseError as error:
    check(False, f"{vintf} is not well-formed XML: {error}")

check(f'registerAsService("{INSTANCE}")' in read("service/ServiceMain.cpp"),
      f"the service does not register as {INSTANCE}")

# Recording a session: the variant of the service names its trace in the directory whose type the
# policy declares and lets the service write.
trace = re.search(r"setenv MOX_TUNER_TRACE (/data/vendor/\w+)/", rc)
check(trace is not None, f"{init_rc} has no recording variant of the service")
check("MOX_TUNER_TRACE" in read("recorder/TraceRecorder.h"), "the recorder reads another variable")
if trace is not None:
    directory = trace.group(1)
    check(f"mkdir {directory} " in rc, f"{init_rc} does not make {directory}")
    entry = next((line for line in read("sepolicy/file_contexts").splitlines()
                  if line.split() and re.fullmatch(line.split()[0], directory + "/trace.jsonl")),
                 None)
    check(entry is not None, f"sepolicy/file_contexts gives {directory} no type")
    if entry is not None:
        trace_type = re.search(r"u:object_r:(\w+):s0", entry).group(1)
        te_text = read("sepolicy/hal_tv_tuner_mox.te")
        check(f"type {trace_type}," in te_text, f"{trace_type} is not declared")
        check(f"allow hal_tv_tuner_mox {trace_type}:file create_file_perms;" in te_text,
              f"the service may not create files of {trace_type}")

file_contexts = read("sepolicy/file_contexts")
exec_line = next((line for line in file_contexts.splitlines()
                  if line.split() and re.fullmatch(line.split()[0], f"/vendor/bin/hw/{binary}")), None)
check(exec_line is not None, f"sepolicy/file_contexts has no entry for /vendor/bin/hw/{binary}")
te = read("sepolicy/hal_tv_tuner_mox.te")
if exec_line is not None:
    exec_type = re.search(r"u:object_r:(\w+):s0", exec_line).group(1)
    check(re.search(rf"^type {exec_type},", te, re.M) is not None,
          f"{exec_type} is not declared in sepolicy/hal_tv_tuner_mox.te")
    domain = exec_type[: -len("_exec")]
    check(f"init_daemon_domain({domain})" in te, f"{domain} is not an init daemon domain")
check(re.search(rf"^{re.escape(PACKAGE)}::{INTERFACE}\s+u:object_r:\w+:s0$",
                read("sepolicy/hwservice_contexts"), re.M) is not None,
      f"sepolicy/hwservice_contexts has no entry for {PACKAGE}::{INTERFACE}")

for finding in findings:
    print(finding)
print(f"{'device files agree' if not findings else str(len(findings)) + ' findings'}")
sys.exit(1 if findings else 0)
