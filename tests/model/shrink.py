"""Shortens a scenario while a condition holds: fewer steps, fewer faults, smaller values."""

import time


def without(items, first, count):
    return items[:first] + items[first + count:]


def fewer_steps(scenario, fails):
    """Delta debugging over the steps: halves, quarters, ..., single ones, until none can go."""
    size = max(1, len(scenario["steps"]) // 2)
    while True:
        place, shortened = 0, False
        while place < len(scenario["steps"]):
            trial = {**scenario, "steps": without(scenario["steps"], place, size)}
            if fails(trial):
                scenario, shortened = trial, True
            else:
                place += size
        if size == 1 and not shortened:
            return scenario
        size = max(1, size // 2)


def simpler(value):
    """Simpler values of the same kind, simplest first."""
    if isinstance(value, bool) or value is None:
        return
    if isinstance(value, int):
        for candidate in (0, 1, 2, 8):
            if abs(candidate) < abs(value):
                yield candidate
        if abs(value) > 16:
            yield value // 2
    elif isinstance(value, str) and len(value) > 3 and value.strip("0"):
        yield "0" * len(value)
        for place in range(0, len(value), 2):
            if value[place:place + 2] != "00":
                yield value[:place] + "00" + value[place + 2:]
    elif isinstance(value, list):
        yield from (value[:place] + [candidate] + value[place + 1:]
                    for place, item in enumerate(value) for candidate in simpler(item))
        if value and isinstance(value[0], list) and value[0] and isinstance(value[0][0], str):  # actions
            yield from (without(value, place, 1) for place in range(len(value)))


def simpler_scenarios(scenario):
    for key in ("tx", "ports"):
        if key in scenario:
            if key == "tx":
                yield {name: value for name, value in scenario.items() if name != key}
            else:
                for place in range(len(scenario[key])):
                    yield {**scenario, key: without(scenario[key], place, 1)}
    for place, step in enumerate(scenario["steps"]):
        trials = []
        if "f" in step:
            trials.append({name: value for name, value in step.items() if name != "f"})
            trials += [{**step, "f": without(step["f"], n, 1)} for n in range(len(step["f"]))
                       if len(step["f"]) > 1]
        trials += [{**step, "a": arguments} for arguments in simpler(step["a"])]
        for trial in trials:
            yield {**scenario, "steps": scenario["steps"][:place] + [trial] + scenario["steps"][place + 1:]}


def shrink(scenario, condition, seconds=60):
    """The shortest form found within the time; `condition` takes a scenario and is true for this one."""
    end = time.monotonic() + seconds

    def fails(trial):
        return time.monotonic() < end and condition(trial)
    scenario = fewer_steps(scenario, fails)
    again = True
    while again:
        again = False
        for trial in simpler_scenarios(scenario):
            if fails(trial):
                scenario, again = trial, True
                break
    return fewer_steps(scenario, fails)
