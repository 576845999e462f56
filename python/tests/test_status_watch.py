"""Following the results from Python: status.onChange(callback), called once per publication
inside the write, and a callback's exception raised again after the write."""
import gc
import sys
import unittest

import multihashtable as mh

T = mh.HashEntryType
A = mh.HashEntryKey(crc16=1, crc32=2)
Y = mh.HashEntryKey(crc16=3, crc32=2)
Z = mh.HashEntryKey(crc16=7, crc32=6)


def single_width_table(steps=3):
    config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
    table = mh.MultiHashTable(2, 4, 1, config, status, maxRecursiveSteps=steps)
    table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
    table.bankIs(T.singleWide, 1, 4, 1, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3)
    return config, status, table


class Unraisable:
    """Collects what goes to sys.unraisablehook while in use."""

    def __enter__(self):
        self.seen = []
        self.previous = sys.unraisablehook
        sys.unraisablehook = self.seen.append
        return self

    def __exit__(self, *_):
        sys.unraisablehook = self.previous


class StatusWatchTest(unittest.TestCase):
    def test_one_call_per_publication_in_order(self):
        config, status, _ = single_width_table()
        seen = []
        watch = status.onChange(lambda key, id: seen.append((key, id)))
        self.assertTrue(watch.active)
        config.configIs(A)
        config.configIs(Y)
        self.assertEqual(seen, [(A, 2), (Y, 7)])
        config.configIs(Z)  # a moves to id 5 first, then z takes id 2
        self.assertEqual(seen, [(A, 2), (Y, 7), (A, 5), (Z, 2)])
        config.configDel(A)
        self.assertEqual(seen[-1], (A, None))
        self.assertFalse(status.statusHas(A), "None for a removed result")
        self.assertEqual(len(seen), 5)

    def test_no_room_is_none_with_the_result_kept(self):
        config, status, _ = single_width_table(steps=0)
        seen = []
        watch = status.onChange(lambda key, id: seen.append((key, id)))
        for key in (A, Y, Z):
            config.configIs(key)
        self.assertEqual(seen, [(A, 2), (Y, 7), (Z, None)])
        self.assertTrue(status.statusHas(Z), "None for a key without room")
        watch.cancel()

    def test_cancel_and_with(self):
        config, status, _ = single_width_table()
        seen = []
        watch = status.onChange(lambda key, id: seen.append(key))
        watch.cancel()
        self.assertFalse(watch.active)
        config.configIs(A)
        self.assertEqual(seen, [])
        with status.onChange(lambda key, id: seen.append(key)) as scoped:
            config.configIs(Y)
        self.assertFalse(scoped.active)
        config.configIs(Z)
        self.assertEqual(seen, [Y])

    def test_the_status_keeps_a_watch_nobody_holds(self):
        config, status, _ = single_width_table()
        seen = []
        status.onChange(lambda key, id: seen.append(id))
        gc.collect()
        config.configIs(A)
        self.assertEqual(seen, [2])

    def test_a_callback_that_cancels_itself(self):
        config, status, _ = single_width_table()
        seen = []

        def once(key, id):
            seen.append(key)
            watch.cancel()

        watch = status.onChange(once)
        config.configIs(A)
        config.configIs(Y)
        self.assertEqual(seen, [A])

    def test_reconcile_publishes_to_the_callback(self):
        config, status, table = single_width_table()
        config.configIs(A)
        table.hasNotificationActiveIs(False)
        config.configDel(A)
        table.hasNotificationActiveIs(True)
        seen = []
        watch = status.onChange(lambda key, id: seen.append((key, id)))
        table.reconcile()
        self.assertEqual(seen, [(A, None)])
        watch.cancel()


class CallbackExceptionTest(unittest.TestCase):
    def test_raised_after_the_write_which_is_made(self):
        config, status, table = single_width_table()
        seen = []
        config.configIs(A)
        config.configIs(Y)

        def refuse_z(key, id):
            if key == Z:
                raise LookupError(f"no room in the mirror for id {id}")

        failing = status.onChange(refuse_z)
        other = status.onChange(lambda key, id: seen.append((key, id)))
        with self.assertRaises(LookupError) as raised:
            config.configIs(Z)
        self.assertEqual(str(raised.exception), "no room in the mirror for id 2")
        self.assertEqual(status.results(), {A: 5, Y: 7, Z: 2}, "the write was made whole")
        self.assertEqual(seen, [(A, 5), (Z, 2)], "every other callback saw every publication")
        self.assertEqual(table.audit(), [])
        config.configDel(Y)  # the next write starts clean
        self.assertEqual(seen[-1], (Y, None))
        failing.cancel()
        other.cancel()

    def test_only_the_first_of_a_write_is_raised(self):
        config, status, _ = single_width_table()
        config.configIs(A)
        config.configIs(Y)
        calls = []

        def always(key, id):
            calls.append(key)
            raise ValueError(f"call {len(calls)}")

        watch = status.onChange(always)
        with Unraisable() as unraisable:
            with self.assertRaises(ValueError) as raised:
                config.configIs(Z)  # two publications: a's move, then z
        self.assertEqual(str(raised.exception), "call 1")
        self.assertEqual(calls, [A, Z])
        self.assertEqual([str(u.exc_value) for u in unraisable.seen], ["call 2"])
        self.assertEqual(unraisable.seen[0].object,
                         "a status callback after an earlier one raised in the same write")
        watch.cancel()

    def test_a_refused_write_calls_nothing(self):
        config, status, _ = single_width_table()
        seen = []
        watch = status.onChange(lambda key, id: seen.append(key))
        with self.assertRaises(mh.RequestRefused):
            config.configIs(A, 7)
        self.assertEqual(seen, [])
        watch.cancel()

    def test_checked_writes_raise_it_too(self):
        config, status, table = single_width_table()

        def boom(key, id):
            raise RuntimeError("boom")

        watch = status.onChange(boom)
        with self.assertRaisesRegex(RuntimeError, "^boom$"):
            mh.checkedConfigIs(config, table, A)
        self.assertEqual(status.results(), {A: 2})
        with self.assertRaisesRegex(RuntimeError, "^boom$"):
            config.configDelAll()
        self.assertEqual(status.results(), {})
        watch.cancel()


if __name__ == "__main__":
    unittest.main()
