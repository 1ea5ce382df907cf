"""What the elements answered, what follows from it for all of them, and how it is told.

Each phase ends with one of the filters below. It gets the fleet as the phases before left it and the
variables of all elements, in which the replies to the phase's operations are registered, and returns
the fleet as it is now:

  run, comment  the roll-out: its persist-id, and the comment by which its commits are known
  go            whether all elements are as they have to be for the next phase
  begun         whether an element may have the policy on probation, or have kept it
  work          whether there is anything to be done
  again         whether it is worth while to tell elements once more to keep it
  looked        when it began to be asked what is in force (seconds since 1970)
  deadline      when the first element may go back by itself, less the margin (seconds since 1970)
  elements      by name: `is` (below), `text` for a person to read, `base` and `commit`: the commits
                before and with the policy, and what a phase needs of them

An element is
  refused     it will not have the policy, or cannot be asked
  same        it had the policy before
  ready       it would take the policy
  probation   it has the policy in force, and goes back by itself unless it is told to keep it
  lost        it was told to take the policy or to keep it, and what became of that is not known
  new, old    it has the policy and keeps it; it has what it had before

Nothing is concluded from an operation's <ok/>, and nothing is kept on the controller: what an
element is follows from its state, in which the commits of a roll-out have their comment. So whoever
knows the name of a roll-out can go on with it or take it back, from any machine.
"""

import copy
import re
import time
import xml.etree.ElementTree as ET

# How the daemon's own commits tell where they lead to.
WAY_BACK = re.compile(r"(?:back|rollback) to (?:commit )?(\d+)")


# --- Replies

def plain(element):
    """An element without namespaces: its text, or its children by name, each name with a list."""
    if len(element) == 0:
        return element.text or ""
    content = {}
    for child in element:
        content.setdefault(child.tag.split("}")[-1], []).append(plain(child))
    return content


def first(content, *path):
    for name in path:
        content = content.get(name, [""])[0] if isinstance(content, dict) else ""
    return content


def answer(result):
    """The content of a registered reply, and why there is none; one of the two is None."""
    if result.get("stdout"):
        return plain(ET.fromstring(result["stdout"])), None
    # Several errors come as XML, one as its text, and what a module did not expect as a trace of
    # Python, the reason last.
    text = str(result.get("msg") or "no answer")
    errors = re.findall(r"<(?:\w+:)?error-message[^>]*>(.*?)</", text, re.S)
    if result.get("module_stderr"):
        text = result["module_stderr"].strip().split("\n")[-1]
    return None, "; ".join(errors) or re.sub(r"^b(['\"])(.*)\1$", r"\2", text.split("\n")[0])


def replies(variables, rpc):
    """Those to the operations of that name in the last phase."""
    results = (variables.get("acl_replies") or {}).get("results", [])
    return [answer(result) for result in results if result["item"]["rpc"] == rpc]


def reply(variables, rpc):
    return (replies(variables, rpc) or [(None, None)])[-1]


def told(finding):
    """A finding as (kind, text with its place)."""
    place = " ".join(filter(None, [first(finding, "profile"), first(finding, "ace-priority")]))
    ports = ", ".join(finding.get("interface", []))
    where = f"{place} ({ports})" if place and ports else place or ports
    return first(finding, "kind"), f"{where}: {first(finding, 'text')}"


def findings(content):
    return [told(finding) for finding in content.get("finding", [])] if content else []


def state(variables):
    """How an element is, in the form that the rest uses, and why that is not known."""
    content, why = answer(variables.get("acl_state") or {})
    data = first(content or {}, "data")
    commits, pending = first(data, "commits"), first(data, "confirmed-commit")
    if not commits:
        return None, why or "it tells nothing of its commits"
    return {
        "running": int(first(commits, "running")),
        "applied": int(first(commits, "applied") or 0),
        "doubt": first(data, "daemon", "storage", "state") == "in-doubt",
        "findings": findings(first(data, "findings")),
        "commits": {int(first(commit, "id")): {name: text[0] for name, text in commit.items()}
                    for commit in commits.get("commit", [])},
        "pending": {
            "commit": int(first(pending, "commit")), "base": int(first(pending, "base")),
            "user": first(pending, "user"), "until": first(pending, "until"),
            "remaining": int(first(pending, "remaining")),
        } if pending else None,
    }, None


def ways(fleet):
    return {element["is"] for element in fleet["elements"].values()}


def comment_of(now, number):
    return now["commits"].get(number, {}).get("comment") or ""


# --- The phases

def begun(run, policy, hosts):
    """The fleet of a roll-out of which nothing but its name is known."""
    return {
        "run": run, "comment": f"fleet roll-out {run} of {policy}", "go": False, "begun": True,
        "work": True, "again": False, "looked": 0, "deadline": 0,
        "elements": {host: {"is": "lost", "text": "", "base": 0, "commit": 0, "session": 0, "do": ""}
                     for host in hosts},
    }


def dry_run(fleet, hostvars, fullest, refused_findings):
    """The first phase: would every element take the policy?"""
    fleet = copy.deepcopy(fleet)
    for host, element in fleet["elements"].items():
        element.update(would_take(hostvars[host], fleet, int(fullest), refused_findings))
    # One that goes on with a roll-out has what that did already to take back.
    begun_before = any(element.get("ours") for element in fleet["elements"].values())
    return {**fleet, "go": "refused" not in ways(fleet), "begun": begun_before,
            "work": ways(fleet) != {"same"}}


def refused(text):
    return {"is": "refused", "text": text}


def would_take(variables, fleet, fullest, refused_findings):
    now, why = state(variables)
    if now is None:
        return refused(why)
    if now["doubt"]:
        return refused("its stored configuration is in doubt: aclctl show status")
    pending = now["pending"]
    ours = pending and comment_of(now, pending["commit"]) == fleet["comment"]
    if pending and not ours:
        return refused(f"a commit by {pending['user']} is on probation there until "
                       f"{pending['until']}: {comment_of(now, pending['commit']) or 'no comment'}")
    for _, why in replies(variables, "lock"):
        if why and not ours:  # what is on probation is kept from others by its persist-id
            return refused(why)
    check, why = reply(variables, "check")
    if check is None:
        return refused(why)
    for refusal in check.get("refusal", []):
        return refused(f"{first(refusal, 'message')} {first(refusal, 'path')}".strip())
    changes, used = int(first(check, "changes") or 0), []
    for group in check.get("group", []):
        then, capacity = int(first(group, "entries-then")), int(first(group, "capacity") or 0)
        used.append(f"{first(group, 'type').upper()} {first(group, 'entries')} to {then} of {capacity}")
        if changes and capacity and then * 100 > capacity * fullest:
            return refused(f"{used[-1]} entries: more than {fullest} %")
    if ours:
        if changes:
            return refused("what this roll-out committed there is not this policy")
        return {"is": "probation", "text": "on probation already", "base": pending["base"],
                "commit": now["running"], "ours": True}
    if changes == 0:
        return {"is": "same", "commit": now["running"], "text": "has the policy: " + ", ".join(used),
                "ours": comment_of(now, now["running"]) == fleet["comment"]}
    found, why = reply(variables, "get-findings")
    if why:
        return refused(why)
    new = [finding for finding in findings(found) if finding not in now["findings"]]
    bad = [text for kind, text in new if kind in refused_findings]
    if bad:
        return refused("findings: " + "; ".join(bad))
    return {"is": "ready", "base": now["running"],
            "text": f"would take it: {changes} changes, " + ", ".join(used)
                    + "".join(f"; finding: {text}" for _, text in new)}


def edited(fleet, hostvars):
    """Whether every candidate has taken the edit; if so, all are to be committed."""
    fleet = copy.deepcopy(fleet)
    for host, element in fleet["elements"].items():
        why = reply(hostvars[host], "edit-config")[1] if element["is"] == "ready" else None
        if why:
            element.update(refused(why))
    go = "refused" not in ways(fleet)
    return {**fleet, "go": go, "begun": go or "probation" in ways(fleet)}


def looking(fleet):
    """Before the elements are asked what is in force."""
    return {**fleet, "looked": int(time.time())}


def applied(fleet, hostvars, margin):
    """After the commit: is the policy in force on every element, and on probation where it is new?"""
    fleet, left = copy.deepcopy(fleet), []
    for host, element in fleet["elements"].items():
        now, why = state(hostvars[host])
        if now is None:
            element.update({"is": "lost", "text": why})
            continue
        pending, running = now["pending"], now["commits"].get(now["running"], {})
        if element["is"] != "same" and (
                not pending or pending["commit"] != now["running"]
                or comment_of(now, now["running"]) != fleet["comment"]):
            why = replies(hostvars[host], "commit")
            element.update(refused(why and why[0][1] or "the policy is not there any more"))
        elif element["is"] == "same" and now["running"] != element["commit"]:
            element.update(refused(f"somebody has committed {now['running']} meanwhile"))
        elif now["applied"] != now["running"]:
            element.update(refused("not in force: " + (running.get("reason") or "no reason given")))
        elif pending:
            element.update({"is": "probation", "base": pending["base"], "commit": now["running"],
                            "until": pending["until"], "text": "in force, on probation"})
            left.append(pending["remaining"])
    # Some were asked long ago, where there are many: each had this much left at `looked` or later.
    return {**fleet, "deadline": fleet["looked"] + min(left, default=0) - int(margin),
            "go": ways(fleet) <= {"probation", "same"}}


def kept(fleet, hostvars):
    """After the elements were told to keep the policy: has every one of them?"""
    fleet = copy.deepcopy(fleet)
    for host, element in fleet["elements"].items():
        if element["is"] not in ("probation", "lost"):
            continue
        now, why = state(hostvars[host])
        if now is None:
            element.update({"is": "lost", "text": why})
        elif now["running"] != element["commit"]:
            element.update({"is": "old", "text": "it has gone back before it was told to keep it"})
        elif now["pending"]:
            element["text"] = reply(hostvars[host], "commit")[1] or "on probation"
        else:
            element.update({"is": "new", "text": f"has the policy as commit {element['commit']}"})
    go = ways(fleet) <= {"new", "same"}
    return {**fleet, "go": go, "again": not go and "old" not in ways(fleet)
            and time.time() < fleet["deadline"]}


def standing(fleet, now):
    """What an element has of the roll-out: what takes it back ("cancel", "rollback" or nothing), the
    commit before it, the session in which it was committed (0 where that cannot be), and that there
    is nothing of it, or nothing any more, in words."""
    ours = [number for number in now["commits"]
            if comment_of(now, number).startswith(f"fleet roll-out {fleet['run']} ")]
    if not ours:
        return {"do": "", "base": 0, "session": 0, "gone": "has what it had before"}
    last = now["commits"][max(ours)]
    # Sessions that an earlier process of the daemon numbered are not those of this one.
    known = {"session": 0 if "at-start" in last else int(last.get("session-id") or 0), "gone": ""}
    if now["pending"] and now["pending"]["commit"] in ours:
        return {**known, "do": "cancel", "base": now["pending"]["base"]}
    for number in sorted(now["commits"]):
        way = WAY_BACK.match(comment_of(now, number))
        if number > max(ours) and way and int(way.group(1)) < max(ours):
            return {**known, "do": "", "base": 0, "gone": f"is back at commit {way.group(1)}"}
    if now["running"] in ours:
        return {**known, "do": "rollback", "base": min(ours) - 1}
    return {**known, "do": "", "base": 0}


def way_back(fleet, hostvars):
    """Before the way back: what is to be done on which element."""
    fleet = copy.deepcopy(fleet)
    for host, element in fleet["elements"].items():
        now, _ = state(hostvars[host])
        element.update(standing(fleet, now) if now else {"do": "", "gone": ""})
    return fleet


def back(fleet, hostvars):
    """After the way back: which elements have what they had before?"""
    fleet = copy.deepcopy(fleet)
    for host, element in fleet["elements"].items():
        now, why = state(hostvars[host])
        if now is None:
            if element["is"] != "same":
                until = f"at {element['until']}" if element.get("until") else "in time"
                why += f"; if it has the policy, it goes back by itself {until}"
                element["is"] = "lost"
            element["text"] = why
            continue
        gone = standing(fleet, now)["gone"]
        if gone and (element["is"] != "same" or element["do"]):
            cause = element["is"] in ("refused", "lost") and element["text"]
            element.update({"is": "old", "text": f"{gone} ({cause})" if cause else gone})
        elif not gone:
            errors = [reply(hostvars[host], rpc)[1] for rpc in ("cancel-commit", "rollback")]
            element.update({"is": "lost", "text": "; ".join(filter(None, errors))
                or "others have committed since then: take it back by hand"})
    return fleet


def summary(fleet):
    """What became of the roll-out, in a line."""
    is_ = [element["is"] for element in fleet["elements"].values()]
    counts = ", ".join(f"{is_.count(way)} {way}" for way in sorted(set(is_)))
    lost = ", ".join(host for host, element in fleet["elements"].items() if element["is"] == "lost")
    end = (
        "every element has the policy" if set(is_) <= {"new", "same"}
        else "no element was changed; all would take it" if set(is_) <= {"ready", "same"}
        else f"not known of {lost}; look there, then run take_back.yml" if lost
        else "taken back everywhere" if "old" in is_
        else "no element was changed"
    )
    return f"{fleet['comment']}: {end} ({counts})"


class FilterModule:
    def filters(self):
        return {f"acl_{phase.__name__}": phase for phase in (
            begun, dry_run, edited, looking, applied, kept, way_back, back, summary)}
