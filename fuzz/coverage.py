#!/usr/bin/env python3
"""Prints how many lines of the code that a fuzz target tests were run.

  fuzz/coverage.py TARGET PROGRAM PROFILE [--lines]

PROGRAM is the target, PROFILE the output of `llvm-profdata merge` for its counts. With --lines it
also prints every line that was not run.
"""

import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import program_end  # noqa: E402

AIM = 95.0

# The files that each target tests, relative to the tree's root; "!" excludes some again.
SUBJECTS = {
    "control_request": [
        "library/control_socket/base64.cpp",
        "library/control_socket/camera_service.cpp",
        "library/control_socket/control_rows.cpp",
    ],
    "usbip_client": [
        "serve/device/*.cpp",
        "serve/device/*.h",
        "serve/usbip/*.cpp",
    ],
    "usbredir_client": [
        "serve/device/control_queue.h",
        "serve/usbredir/*.cpp",
    ],
    "viewer_client": [
        "viewer/live/page*.cpp",
        "viewer/server/*.cpp",
    ],
    "packet_stream": [
        "driver/frame/assembly/frame_assembly.cpp",
        "driver/frame/assembly/packet_walk.h",
        "driver/frame/raw/raw_frame_parser.cpp",
        "driver/frame/raw/raw_frame_parser.h",
    ],
    "capture_file": [
        "bus/capture/replay/control_history.cpp",
        "bus/capture/records/usb_record.cpp",
        "bus/capture/records/usbmon_record.cpp",
        "bus/capture/records/usbpcap_record.cpp",
    ],
    # capture_input.cpp: pipes and temporary files do not depend on a capture's bytes.
    "capture_replay": [
        "bus/capture/**/*.cpp",
        "!bus/capture/files/capture_input.cpp",
        "!bus/capture/recording/recording_bus.cpp",
        "!bus/capture/records/usb*_record.cpp",
    ],
    "register_set_file": [
        "driver/sensor/register_sets/register_set_file.cpp",
        "driver/sensor/register_sets/register_set_list.cpp",
        "driver/sensor/modes/setup_registers.cpp",
        "library/register_sets/*.cpp",
        "!library/register_sets/set_files.cpp",
    ],
    "registry_text": ["platform/host/nt/registry/registry_text*.cpp", "platform/host/nt/registry/registry_tree.cpp"],
    "resampler": ["driver/frame/resampler/*.cpp", "driver/frame/resampler/jobs/*.cpp"],
    "fault_script": [
        "bus/faults/fault_agenda.cpp",
        "bus/faults/fault_grammar.cpp",
        "bus/faults/fault_script.cpp",
        "bus/faults/frame_faults.cpp",
        "bus/faults/packet_disturbance.cpp",
        "bus/faults/timed_faults.cpp",
    ],
    "property_request": [
        "driver/avstream/properties/property_requests*.cpp",
        "driver/core/control/control_codes.cpp",
        "driver/core/settings/settings_store.cpp",
        "platform/host/ks/properties/automation.cpp",
        "platform/host/ks/properties/basic_support.cpp",
        "platform/host/ks/filter/filter_properties.cpp",
    ],
    "data_format": [
        "driver/avstream/pin/capture_pin*.cpp",
        "platform/host/ks/formats/data_format.cpp",
        "platform/host/ks/pin/requests/pin_create.cpp",
        "platform/host/ks/formats/pin_intersection.cpp",
        "platform/host/ks/pin/requests/pin_properties.cpp",
        "platform/host/ks/stream/stream_request.cpp",
    ],
    "usb_descriptor": [
        "bus/enumeration.cpp",
        "driver/usb/requests/usb_configuration.cpp",
        "platform/host/usbd/configuration/configuration_descriptor.cpp",
        "platform/host/usbd/configuration/usb_configuration.cpp",
        "platform/host/usbd/configuration/usbd_library.cpp",
    ],
    "completion_sequence": ["driver/usb/*.cpp", "!driver/usb/requests/usb_configuration.cpp"],
    "command_line": [
        "library/camera/source/camera_source.cpp",
        "apps/lidcam/commands/*.cpp",
        "apps/lidcam/options/fault_option.cpp",
        "apps/lidcam/program.cpp",
        "apps/lidcam/plot/frame_log_reader.cpp",
        "library/settings/stream_size.cpp",
        "library/base/units.cpp",
        "camera_model/device/camera_options.cpp",
        "camera_model/optics/light_schedule.cpp",
    ],
}


def files_of(target):
    files = set()
    for pattern in SUBJECTS[target]:
        found = {str(path.relative_to(ROOT)) for path in ROOT.glob(pattern.lstrip("!"))}
        if not found:
            program_end.fail(f"{target}: there is no {pattern.lstrip('!')}")
        files = files - found if pattern.startswith("!") else files | found
    return sorted(files)


def export(program, profile, files, *options):
    command = ["llvm-cov", "export", *options, f"-instr-profile={profile}", program]
    try:
        done = subprocess.run(command + [str(ROOT / file) for file in files],
                              capture_output=True, text=True, check=True)
    except FileNotFoundError:
        program_end.fail("there is no llvm-cov; scripts/setup long installs it")
    return json.loads(done.stdout)["data"][0]


def is_constexpr(name, first):
    """Whether the declaration that ends with the function's brace contains constexpr."""
    text = pathlib.Path(name).read_text().splitlines()
    start = first - 1
    while start > 0 and text[start - 1].strip() and text[start - 1].rstrip()[-1] not in ";{}:>":
        start -= 1
    return any("constexpr" in line for line in text[start:first])


def compile_time_lines(program, profile, files):
    """Lines of constexpr functions that only the compiler ran."""
    ran, never = set(), {}
    for function in export(program, profile, files, "-skip-expansions")["functions"]:
        name, region = function["filenames"][0], function["regions"][0]
        if function["count"]:
            ran.add((name, region[0]))
        else:
            never[name, region[0]] = region[2]
    whole = {str(ROOT / file) for file in files}
    lines = 0
    for (name, first), last in never.items():
        if (name, first) not in ran and name in whole and is_constexpr(name, first):
            lines += last - first + 1
    return lines


def print_lines(program, profile, files):
    for entry in export(program, profile, files)["files"]:
        if not entry["segments"]:
            continue
        name = pathlib.Path(entry["filename"]).relative_to(ROOT)
        shown = subprocess.run(
            ["llvm-cov", "show", f"-instr-profile={profile}", program, entry["filename"]],
            capture_output=True, text=True, check=False).stdout
        for line in shown.splitlines():
            number, count, text = (line.split("|", 2) + ["", ""])[:3]
            if count.strip() == "0":
                print(f"  {name}:{number.strip()}: {text}")


def main():
    arguments = [word for word in sys.argv[1:] if word != "--lines"]
    if len(arguments) != 3 or arguments[0] not in SUBJECTS:
        raise program_end.WrongUse(
            "usage: fuzz/coverage.py TARGET PROGRAM PROFILE [--lines]; the targets are "
            + ", ".join(sorted(SUBJECTS)))
    target, program, profile = arguments
    files = files_of(target)
    rows = export(program, profile, files, "-summary-only")["files"]
    lines = sum(row["summary"]["lines"]["count"] for row in rows)
    covered = sum(row["summary"]["lines"]["covered"] for row in rows)
    lines -= compile_time_lines(program, profile, files)
    percent = 100.0 * covered / lines if lines else 0.0
    print(f"coverage {target}: {len(files)} files, {covered} of {lines} lines, {percent:.1f} %")
    if percent < AIM:
        for row in sorted(rows, key=lambda row: row["filename"]):
            here = row["summary"]["lines"]
            if here["covered"] < here["count"]:
                name = pathlib.Path(row["filename"]).relative_to(ROOT)
                print(f"  {name}: {here['count'] - here['covered']} of {here['count']} lines not run")
    if "--lines" in sys.argv:
        print_lines(program, profile, files)


if __name__ == "__main__":
    program_end.run(main)
