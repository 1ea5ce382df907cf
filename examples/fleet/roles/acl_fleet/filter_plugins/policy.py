"""Filter `acl_edit`: a policy, as policy.yml has it, becomes the <config> of an edit.

The content of a profile and of an interface is replaced as a whole, so what an element has there
besides is gone, and an edit that was made already changes nothing.
"""

from xml.sax.saxutils import escape

from ansible.errors import AnsibleFilterError

BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
ACL = "urn:acl-app:acl"
ADDRESSES = ("source-ipv4-address", "destination-ipv4-address")

# What each part of a policy may have; what it must have is in the second place.
PARTS = {
    "policy": ({"name", "exact", "profiles", "bindings", "absent"}, {"name"}),
    "profile": ({"name", "type", "priority", "description", "entries"}, {"name", "type", "priority"}),
    "entry": ({"priority", "match", "action", "description"}, {"priority"}),
    "binding": ({"interfaces", "profiles"}, {"interfaces"}),
}


def checked(part, content):
    """`content` with None for what it does not have; an error names a key that should not be."""
    may, must = PARTS[part]
    if not isinstance(content, dict):
        raise AnsibleFilterError(f"acl_policy: a {part} has names and values, not {content!r}")
    place = f"{part} {content.get('name', content.get('priority', ''))}".strip()
    for key in sorted(set(content) - may, key=str):
        raise AnsibleFilterError(f"acl_policy: {place}: there is no {key!r}, but {sorted(may)}")
    for key in sorted(must - set(content)):
        raise AnsibleFilterError(f"acl_policy: {place}: {key!r} is missing")
    return {key: content.get(key) for key in may}


def leaf(name, value):
    return "" if value is None else f"<{name}>{escape(str(value))}</{name}>"


def match(name, value):
    if name in ADDRESSES:
        form = "mask" if "/" in str(value) else "no-mask"
        return f"<{name}><{form}>{leaf('ip', value)}</{form}></{name}>"
    return leaf(name, value)


def action(words):
    """`permit`, `deny`, `set-pcp N`, or a list of these."""
    content = ""
    for word in [words] if isinstance(words, str) else words or []:
        if word in ("permit", "deny"):
            content += f"<packet-handling><{word}/></packet-handling>"
        elif str(word).startswith("set-pcp "):
            content += f"<set>{leaf('pcp', word.split()[1])}</set>"
        else:
            raise AnsibleFilterError(f"acl_policy: the action {word!r} is none of permit, deny, set-pcp N")
    return f"<action>{content}</action>" if content else ""


def entry(content):
    e = checked("entry", content)
    matches = "".join(match(name, value) for name, value in (e["match"] or {}).items())
    return (
        "<access-list-entry>"
        + leaf("ace-priority", e["priority"])
        + leaf("description", e["description"])
        + (f"<match>{matches}</match>" if matches else "")
        + action(e["action"])
        + "</access-list-entry>"
    )


def profile(content):
    p = checked("profile", content)
    kind = p["type"]
    return (
        '<access-list nc:operation="replace">'
        + leaf("acl-type", kind)
        + leaf("acl-name", p["name"])
        + leaf("description", p["description"])
        + f"<acl-priority-{kind}>{leaf('priority', p['priority'])}</acl-priority-{kind}>"
        + "".join(map(entry, p["entries"] or []))
        + "</access-list>"
    )


def absent(name):
    """Names are unique across the types; a removal of what is not there is none."""
    return "".join(
        f'<access-list nc:operation="remove">{leaf("acl-type", kind)}{leaf("acl-name", name)}</access-list>'
        for kind in ("l2", "l3")
    )


def interfaces(bindings):
    bound = {}
    for content in bindings or []:
        b = checked("binding", content)
        names = b["interfaces"]
        for name in [names] if isinstance(names, str) else names:
            bound.setdefault(name, []).extend(b["profiles"] or [])
    return "".join(
        f'<interface nc:operation="replace">{leaf("interface-name", name)}'
        + "".join(leaf("ingress", p) for p in profiles)
        + "</interface>"
        for name, profiles in bound.items()
    )


def acl_edit(policy):
    """The edit as XML: its default-operation, and its config."""
    p = checked("policy", policy)
    lists = "".join(map(absent, p["absent"] or [])) + "".join(map(profile, p["profiles"] or []))
    return (
        f"<default-operation>{'replace' if p['exact'] else 'merge'}</default-operation>"
        f'<config xmlns:nc="{BASE}"><config xmlns="{ACL}"><access-list>'
        f"<acl-profile><ingress>{lists}</ingress></acl-profile>{interfaces(p['bindings'])}"
        "</access-list></config></config>"
    )


class FilterModule:
    def filters(self):
        return {"acl_edit": acl_edit}
