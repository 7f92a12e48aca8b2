"""The rules of the access policy that each use of the phone needs, and no more.

$domain is who uses it, $type its label, $name its name, $process who answers the calls.
"""

from string import Template

import phone_policy

PROGRAM = "/system_ext/bin/peltoserviced"
PROGRAM_ENTRY = "/(system_ext|system/system_ext)/bin/peltoserviced"
START_UP = ("start-up", "")

_RUN = "{ getattr open read execute execute_no_trans map }"
_USE_BINDER = """
    allow $domain servicemanager:binder { call transfer };
    allow servicemanager $domain:binder { call transfer };
    allow servicemanager $domain:dir search;
    allow servicemanager $domain:file { open read };
    allow servicemanager $domain:process getattr;
"""
_SET_PROPERTY = """
    allow $domain property_socket:sock_file write;
    allow $domain init:unix_stream_socket connectto;
    allow $domain $type:property_service set;
"""
_BY_KIND = {
    "start-up": _USE_BINDER
    + """
        type_transition init $type:process $domain;
        allow init $type:file { getattr open read execute map };
        allow init $domain:process { transition siginh rlimitinh };
        allow $domain $type:file { entrypoint getattr open read execute map };
        allow $domain init:process sigchld;
    """,
    "add": """
        allow $domain $type:service_manager add;
        allow pelto_client $type:service_manager find;
        allow pelto_client $domain:binder { call transfer };
        allow $domain pelto_client:binder call;
    """,
    "find": "allow $domain $type:service_manager find;",
    "dump": """
        allow $domain $type:service_manager find;
        allow $process $domain:fd use;
        allow $process $domain:fifo_file { getattr write };
    """,
    "read": "allow $domain $type:file { getattr open read map };",
    "set": _SET_PROPERTY,
    "start": _SET_PROPERTY,
    "socket": "allow $domain self:${name}_socket { create bind read write };",
    "priority": """
        allow $domain self:capability sys_nice;
        allow $domain self:process setsched;
    """,
    "program": f"allow $domain $type:file {_RUN};",
    "clear": "allow $domain kernel:system syslog_mod;",
    "path": "",
}
# What single items need besides.
_BY_ITEM = {
    ("set", "kelvo.audio.dumpinfo.type"): """
        allow audiodumpinfo $type:file { getattr open read map };
    """,
    # Runs gzip.
    ("program", "tar"): "allow $domain self:fifo_file { getattr read write };",
    ("program", "dmesg"): """
        allow $domain kernel:system syslog_read;
        allow $domain self:capability2 syslog;
    """,
    ("program", "logcat"): """
        allow $domain logdr_socket:sock_file write;
        allow $domain logd:unix_stream_socket connectto;
    """,
    # Reads the dumps from a pipe.
    ("program", "dumpsys"): _USE_BINDER
    + "allow $domain self:fifo_file { getattr read write };",
    ("program", "perfetto"): """
        allow $domain traced_consumer_socket:sock_file write;
        allow $domain traced:unix_stream_socket connectto;
    """,
}
# What the phone has labelled. All else has a label of ours.
_PHONE_TYPES = {
    ("path", "/data/tombstones/"): "tombstone_data_file",
    ("read", "ro.build.version.ota"): "build_prop",
    ("find", "SurfaceFlinger"): "surfaceflinger_service",
    ("dump", "audio"): "audio_service",
    ("dump", "media.audio_flinger"): "audioserver_service",
    ("dump", "media.audio_policy"): "audioserver_service",
    ("program", "sh"): "shell_exec",
    ("program", "logcat"): "logcat_exec",
    ("program", "dumpsys"): "system_file",
    ("program", "perfetto"): "perfetto_exec",
    **{
        ("program", name): "toolbox_exec"
        for name in ("chmod", "cp", "dmesg", "rm", "tar", "touch")
    },
}
_WITHOUT_TYPE = {"socket", "priority", "clear"}
# Whose objects are called, by the type of the object.
_PROCESSES = {
    "surfaceflinger_service": "surfaceflinger",
    "audio_service": "system_server",
    "audioserver_service": "audioserver",
}

# What is done to the files of a directory: the permissions for it, and for them.
_ACCESS = {
    "list": ("getattr open read search", ""),
    "read": ("search", "getattr open read"),
    "make": ("search write add_name", "create getattr open write"),
    "append": ("search", "append"),
    "chmod": ("search", "getattr setattr"),
    # A program asks whether its output is a terminal.
    "print": ("search", "ioctl"),
    "remove": ("search write remove_name", "getattr unlink"),
}
_ACCESSES = {
    "/data/tombstones/": {"$domain": "list read"},
    "/data/persist_log/wex/exception_log/": {"$domain": "list read make chmod"},
    "/data/persist_log/TMP/audio_dumpsys/": {
        "$domain": "list remove",
        "audiodumpinfo": "list make append",
    },
    "/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt": {"$domain": "make chmod print"},
    "/data/kelvo/mmdump/gpu/": {"$domain": "list read make chmod print remove"},
}


def _way_to(path):
    """The rules for the directories above a path, which are the phone's own."""
    if path.startswith("/sys/"):
        return "allow $domain sysfs:dir search; allow $domain sysfs:lnk_file read;"
    way = "allow $domain system_data_root_file:dir { getattr search };"
    if path.count("/") > 3:
        way += "allow $domain system_data_file:dir { getattr search };"
    return way


def _accesses(path):
    if path.startswith("/sys/"):
        return "allow $domain $type:dir search; allow $domain $type:file { getattr open read };"
    text = ""
    for who, kinds in _ACCESSES[path].items():
        for kind in kinds.split():
            for name, permissions in zip(("dir", "file"), _ACCESS[kind]):
                text += f"allow {who} $type:{name} {{ {permissions} }};" if permissions else ""
    return text


def type_of(item, policy):
    """What an item is labelled with, by us or by the phone; None: it has no label."""
    if item == START_UP:
        return dict(policy.labels["file"]).get(PROGRAM_ENTRY)
    return policy.label(*item)[1] or _PHONE_TYPES.get(item)


def stated():
    """The items that are named here one by one."""
    return {*_PHONE_TYPES, *_BY_ITEM, *(("path", path) for path in _ACCESSES)}


def needed(domain, item, policy):
    """The rules for an item of this domain; None when nothing here says what it needs."""
    kind, name = item
    given = type_of(item, policy)
    if kind not in _BY_KIND or (given is None and kind not in _WITHOUT_TYPE):
        return None
    text = _BY_KIND[kind] + _BY_ITEM.get(item, "")
    if kind == "path":
        if name not in _ACCESSES and not name.startswith("/sys/"):
            return None
        text = _way_to(name) + _accesses(name)
    process = _PROCESSES.get(given)
    if process is not None:
        text += f"allow $domain {process}:binder call;"
    words = {"domain": domain, "type": given, "name": name, "process": process}
    return phone_policy.Statements(Template(text).substitute(words)).rules


def type_attributes(policy):
    """The types of ours with their attributes, by what they label."""
    found = {phone_policy.SERVICE: {"domain", "coredomain"}}
    for entry, given in policy.labels["file"]:
        if entry.startswith("/data/"):
            found[given] = {"file_type", "data_file_type", "core_data_file_type"}
        elif entry.startswith("/sys/"):
            found[given] = {"fs_type", "sysfs_type"}
        else:
            found[given] = {"exec_type", "file_type", "system_file_type"}
    found |= {given: {"property_type"} for _, given in policy.labels["property"]}
    return found | {given: {"service_manager_type"} for _, given in policy.labels["service"]}
