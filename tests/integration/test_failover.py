"""The master of a pair is killed in each state of its pipeline, and the roles go back and forth, with and without a
loss: every access point is served again, and keeps its channels, its powers and its keys.

What the pair must do with a cycle that was under way: the standby knows of it from the backup, leaves it be until its
access points have had their time to come back, and then plans a new one. Until that is applied nothing may change. The
plan of this site is a fixed point (a second cycle on the same master repeats it, which is shown too), so neither may it
change anything then; a restored domain that had lost its neighbours, limits or channels would plan another one."""

import concurrent.futures
import datetime
import sys
import time
import unittest

from pair import (AWAY_TIMEOUT_S, COMPUTING, DELAY, DOMAIN, FORCED_DELAY, FORCE_DELAY_S, IDLE, MACS, MODES, SCAN, Pair,
                  await_that, keys_told, radios_of, radios_told, site)

PROGRAMS = [sys.argv.pop(1) for _ in range(3)]  # zal_controller, zal_rrm, zal_apsim

SWITCHES = 10
MID_CYCLE = (MODES, SCAN, COMPUTING)
STARTED = radios_of(site()["radio_profile"])
SLACK_S = 2  # deadlines are kept in whole seconds

check = unittest.TestCase()
check.maxDiff = None


def in_twelve_hours():
    return (datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(hours=12)).strftime("%-H:%M")


def assert_nothing_changed(messages, expected):
    """All that passed agrees with the picture, and nobody was refused."""
    radios, keys = expected
    for message in messages:
        told = radios_told(message)
        if told is not None:
            check.assertEqual(told, radios[message.mac], message)
        if message.command == "fbt-info":
            check.assertEqual(keys_told(message), keys[message.mac], message)
        if message.command == "subscribe-response":
            check.assertEqual(message.content["status"], "success", message)


def assert_all_keep(pair, since, expected):
    """The servers' word, the wire's, and the simulated site's."""
    assert_nothing_changed(pair.address.messages(since), expected)
    check.assertEqual(pair.master.counts(), (len(MACS), 0, 0))
    check.assertEqual(pair.master.picture(), expected)
    check.assertEqual(pair.last_plan()[1], expected[0])


def assert_plan_is_worth_keeping(picture):
    """Otherwise nobody would notice that it was lost: the site starts on one channel in each band, without keys."""
    radios, keys = picture
    check.assertEqual(sorted(radios), MACS)
    for number, (started, full_power) in STARTED.items():
        plan = [radio[number] for radio in radios.values()]
        check.assertGreaterEqual(len({channel for channel, _ in plan}), 3)
        check.assertNotEqual({channel for channel, _ in plan}, {started})
        check.assertLess(max(power for _, power in plan), full_power)
    vaps = [vap for of_ap in keys.values() for vap in of_ap.values()]
    check.assertEqual(len({key for _, _, key, _ in vaps}), 3 * len(MACS))
    check.assertEqual({len(links) for _, _, _, links in vaps}, {3 * (len(MACS) - 1)})


def await_same_plan(pair, since, expected):
    """Until a cycle begun after then has given every access point what it had. Returns when it began."""
    before = pair.whole_cycles()
    began_at = await_that(lambda: pair.sent(since, "rrm-request-mode"), "a cycle begins")[0].at
    await_that(lambda: pair.whole_cycles() == before + 1, "it ends")
    check.assertEqual(pair.last_plan(), [expected[0], expected[0]])
    check.assertEqual(pair.await_settled(), expected)
    return began_at


def order_cycle(pair, expected):
    ordered_at = time.monotonic()
    pair.master.daemon.zalctl("api", "optimize", DOMAIN)
    await_same_plan(pair, ordered_at, expected)


def bring_to(pair, state):
    """Leaves the master in this state, with a backup that says so at the standby. In the middle of a cycle a backup is
    written only when something happens, so there an access point is lost."""
    if state not in (IDLE, DELAY):
        pair.master.daemon.zalctl("api", "optimize", DOMAIN)
    await_that(lambda: pair.master.state() == state, f"state {state}")
    if state in MID_CYCLE:
        pair.lose_one()
    else:
        await_that(lambda: pair.standby.saved()[:2] == (state, []), f"the standby knows state {state}")
    check.assertEqual(pair.master.state(), state)


def killed_in(state):
    pattern = {"use_optimization_time": 1, "optimization_time": in_twelve_hours()} if state == DELAY else {}
    with Pair(*PROGRAMS, **pattern) as pair:
        expected = pair.await_first_plan()
        assert_plan_is_worth_keeping(expected)
        # The computation ends with a report. Somebody who reads the reports meanwhile makes it last.
        reports = pair.master.hold_reports() if state == COMPUTING else None
        bring_to(pair, state)
        check.assertEqual(pair.standby.saved()[2], expected)

        killed_at = pair.kill_master()
        if reports:
            reports.close()
        line = served_line(f"killed in state {state}", pair, killed_at)
        assert_all_keep(pair, killed_at, expected)
        check.assertEqual(pair.master.state(), FORCED_DELAY if state in MID_CYCLE else state)
        remapped = f"Restore domain {DOMAIN}: mid-cycle rrm-status {state} remapped to DELAY_BEFORE_OPT_FORCE"
        check.assertEqual(remapped in pair.master.log(), state in MID_CYCLE)

        if state == IDLE:
            await_links_update(pair, killed_at)
            assert_all_keep(pair, killed_at, expected)
            order_cycle(pair, expected)
        else:
            began_at = await_same_plan(pair, killed_at, expected)
            check.assertGreater(began_at - killed_at, AWAY_TIMEOUT_S + FORCE_DELAY_S - SLACK_S)
        check.assertEqual(pair.master.state(), DELAY if state == DELAY else IDLE)
        assert_all_keep(pair, killed_at, expected)
        return [line]


def await_links_update(pair, since):
    """A domain that was at rest stays so; only its links are looked over once everybody had time to come back."""
    await_that(lambda: pair.master.group()["fbt-status"] == 1, "the links are to be looked over")
    await_that(lambda: pair.master.group()["fbt-status"] == 0, "the links were looked over")
    check.assertEqual(pair.sent(since, "rrm-request-mode"), [])
    check.assertEqual(pair.master.state(), IDLE)


def back_and_forth(label, change_roles):
    with Pair(*PROGRAMS) as pair:
        expected = pair.await_first_plan()
        assert_plan_is_worth_keeping(expected)
        began_at = pair.address.messages()[-1].at
        lines = []
        for number in range(1, SWITCHES + 1):
            changed_at = change_roles(pair)
            lines.append(served_line(f"{label} {number}", pair, changed_at))
            assert_all_keep(pair, began_at, expected)
            check.assertEqual(pair.master.state(), IDLE)
            check.assertEqual(pair.await_settled(), expected)
        check.assertEqual(pair.sent(began_at, "rrm-request-mode"), [])
        order_cycle(pair, expected)
        assert_all_keep(pair, began_at, expected)
        return lines


def kill_and_bring_back(pair):
    changed_at = pair.kill_master()
    pair.bring_back()
    return changed_at


def killed_with_the_site():
    """The master's machine and the access points lose their power together. These come back as an installer left them,
    to a new master that knows their plan, and gives them their powers and keys again. A channel is what its access
    point says, as always, until the next cycle."""
    with Pair(*PROGRAMS) as pair:
        expected = pair.await_first_plan()
        assert_plan_is_worth_keeping(expected)
        pair.end_site()
        killed_at = pair.kill_master()
        check.assertEqual(pair.master.counts(), (0, 0, len(MACS)))
        check.assertEqual(pair.master.picture(deleted=True), expected)

        pair.start_site()
        pair.await_served(killed_at)
        messages = pair.address.messages(killed_at)
        for message in messages:
            if message.command == "subscribe-request":
                check.assertEqual(radios_told(message), STARTED)
        radios, keys = expected
        given_back = ({mac: {number: (STARTED[number][0], power) for number, (_, power) in planned.items()}
                       for mac, planned in radios.items()}, keys)
        assert_nothing_changed([message for message in messages if message.to_ap], given_back)
        check.assertEqual(pair.master.picture(), given_back)

        pair.master.daemon.zalctl("api", "optimize", DOMAIN)
        again = pair.await_first_plan()
        assert_plan_is_worth_keeping(again)
        check.assertEqual(again[1], keys)
        return []


def one_master_alone():
    """What the others rest on: without any failover a second cycle repeats the plan."""
    with Pair(*PROGRAMS) as pair:
        order_cycle(pair, pair.await_first_plan())
        return []


def served_line(label, pair, began_at):
    """Awaits it; seconds from the kill or the first order until the address led to the new master, and until the first
    and the last access point had its answer from it."""
    answers = sorted(pair.await_served(began_at).values())
    check.assertEqual(len(answers), len(MACS))
    return f"{label:20}" + "".join(f"{at - began_at:12.2f}" for at in (pair.led_at, answers[0], answers[-1]))


SCENARIOS = {
    "one_master_alone": one_master_alone,
    **{f"killed_in_state_{state}": lambda state=state: killed_in(state) for state in range(6)},
    "killed_with_the_site": killed_with_the_site,
    "roles_switched": lambda: back_and_forth("switch", Pair.switch),
    "killed_in_turns": lambda: back_and_forth("kill", kill_and_bring_back),
}


class FailoverTest(unittest.TestCase):
    """Most of a scenario is waiting, so all of them run at once."""

    @classmethod
    def setUpClass(cls):
        cls.pool = concurrent.futures.ThreadPoolExecutor(len(CHOSEN))
        cls.runs = {name: cls.pool.submit(SCENARIOS[name]) for name in CHOSEN}

    @classmethod
    def tearDownClass(cls):
        cls.pool.shutdown()
        print(f"\n{'seconds until':20}{'new master':>12}{'first AP':>12}{'last AP':>12}")
        for name in CHOSEN:
            if cls.runs[name].exception() is None:
                print(*(line + "\n" for line in cls.runs[name].result()), sep="", end="")


def test_of(name):
    def test(self):
        self.runs[name].result()
    return test


CHOSEN = sys.argv[1:] or list(SCENARIOS)
for chosen in CHOSEN:
    setattr(FailoverTest, "test_" + chosen, test_of(chosen))

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
