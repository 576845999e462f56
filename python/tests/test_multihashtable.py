"""The Python module multihashtable: requests and results, both tables, counters, audit,
traces and the simulation."""
import json
import os
import subprocess
import tempfile
import unittest

import multihashtable as mh

T = mh.HashEntryType


def single_width_table(steps):
    """Two banks of 4 one-slot buckets: bank 0 hashes crc32, bank 1 crc16."""
    config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
    table = mh.MultiHashTable(2, 4, 1, config, status, maxRecursiveSteps=steps)
    table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
    table.bankIs(T.singleWide, 1, 4, 1, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3)
    return config, status, table


# a: bank 0 bucket 2 (id 2) or bank 1 bucket 1 (id 5); y: bank 0 bucket 2 or bank 1 bucket 3
# (id 7); z: bank 0 bucket 2 or bank 1 bucket 3, so z only fits once a moves to bank 1.
A = mh.HashEntryKey(crc16=1, crc32=2)
Y = mh.HashEntryKey(crc16=3, crc32=2)
Z = mh.HashEntryKey(crc16=7, crc32=6)


class SingleWidthTest(unittest.TestCase):
    def test_placement_moves_an_occupant(self):
        config, status, table = single_width_table(steps=3)
        config.configIs(A)
        config.configIs(Y)
        self.assertEqual(status.results(), {A: 2, Y: 7})
        config.configIs(Z)
        results = status.results()
        self.assertEqual(results[Z], 2)
        self.assertEqual(results[A], 5, "a moved to its bucket in bank 1")
        self.assertEqual(table.numInsertions, 3)
        self.assertEqual(table.numMoves, 1)
        self.assertEqual(table.entries(), {2: Z, 5: A, 7: Y})
        self.assertEqual(table.audit(), [])

    def test_no_room_is_none(self):
        config, status, table = single_width_table(steps=0)
        for key in (A, Y, Z):
            config.configIs(key)
        self.assertIsNone(status.results()[Z])
        self.assertIsNone(status.status(Z))
        self.assertTrue(status.statusHas(Z))
        self.assertEqual(table.numMoves, 0)

    def test_requested_id_and_removal(self):
        config, status, table = single_width_table(steps=3)
        config.configIs((1, 2), 5)  # a key as a tuple, at a requested id
        self.assertEqual(status.status(A), 5)
        self.assertEqual(config.requests(), {A: 5})
        self.assertEqual(config.configDel(A), 5)
        self.assertEqual(status.results(), {})
        self.assertEqual(table.numDeletions, 1)
        self.assertEqual(table.audit(), [])

    def test_request_check_before_the_write(self):
        config, status, table = single_width_table(steps=3)
        self.assertEqual(table.requestProblem(A), "")
        self.assertEqual(table.requestProblem(A, 5), "")
        self.assertNotEqual(table.requestProblem(A, 3), "", "3 is not one of a's candidates")
        check = table.requestCheck(A, 3)
        self.assertEqual(check.outcome, mh.RequestOutcome.stopsNow)
        self.assertTrue(check.fatal)
        self.assertFalse(check.passes)
        self.assertIn("checkEntryIdValidity", check.condition)
        self.assertEqual(table.removalCheck(A).outcome, mh.RequestOutcome.unchanged, "a has no request yet")
        config.configIs(A)
        self.assertEqual(table.removalProblem(A), "")
        self.assertEqual(table.removalCheck(A).outcome, mh.RequestOutcome.accepted)
        self.assertEqual(status.status(A), 2)

    def test_keys(self):
        self.assertEqual(A, mh.HashEntryKey(1, 2, 0, T.singleWide))
        self.assertEqual(hash(A), hash(mh.HashEntryKey(1, 2)))
        self.assertNotEqual(A, mh.HashEntryKey(1, 2, 0, T.doubleWide))
        self.assertEqual((A.crc16, A.crc32, A.fapId, A.entryType), (1, 2, 0, T.singleWide))
        self.assertIn("crc16=1", repr(A))


class MultiWidthTest(unittest.TestCase):
    def setUp(self):
        self.config, self.status = mh.HashEntryConfig(), mh.HashEntryStatus()
        self.table = mh.MultiEntryTypeHashTable(2, 4, 4, self.config, self.status, maxRecursiveSteps=1)
        self.table.bankIs(T.singleWide, 0, 4, 4, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3, phyBankId=2)
        self.table.bankIs(T.singleWide, 1, 4, 4, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3, phyBankId=5)
        self.helper = mh.EntryIdHelper(self.table)
        self.table.entryIdHelperIs(self.helper)

    def tearDown(self):
        # The table and its helper hold each other.
        self.table.entryIdHelperIs(None)

    def test_wide_keys_and_a_move(self):
        k1 = mh.HashEntryKey(1, 1, 0, T.doubleWide)
        k2 = mh.HashEntryKey(0, 0, 0, T.singleWide)
        k3 = mh.HashEntryKey(0, 5, 0, T.quadWide)
        k4 = mh.HashEntryKey(0, 9, 0, T.doubleWide)
        k5 = mh.HashEntryKey(0, 13, 0, T.singleWide)
        for key in (k1, k2, k3, k4):
            self.config.configIs(key)
        self.assertEqual(self.status.status(k1), 4)
        self.config.configIs(k5)  # both its buckets are full: k1 moves to bank 1
        self.assertEqual(self.status.results(), {k1: 20, k2: 0, k3: 16, k4: 6, k5: 4})
        quad = self.status.status(k3)
        self.assertEqual(quad % 4, 0, "a quad-wide entry starts on a slot aligned to 4")
        self.assertEqual(self.helper.getLogicalBankId(quad), 1)
        self.assertEqual(self.helper.getPhysicalBankId(quad), 5)
        self.assertEqual(self.helper.getBucketId(quad), 0)
        self.assertEqual(self.helper.getHwPosition(quad), 5 << 24)
        self.assertEqual(self.helper.getHashEntryKey(quad), k3)
        self.assertEqual(self.table.numMoves, 1)
        self.assertEqual(self.table.bank(1).phyBankId, 5)
        self.assertEqual(self.table.audit(), [])


class TraceTest(unittest.TestCase):
    def tearDown(self):
        mh.trace.levelMask = 0
        mh.trace.sink = None

    def test_capture(self):
        capture = mh.TraceCapture()
        mh.trace.sink = capture
        mh.trace.levelMask = 0xFFFFFFFF
        config, _, _ = single_width_table(steps=3)
        config.configIs(A)
        self.assertTrue(capture.lines())
        self.assertTrue(any("handleHashUpdate" in line for line in capture.lines()))
        self.assertTrue(capture.text().endswith("\n"))
        capture.clear()
        mh.trace.levelMask = 0
        config.configIs(Y)
        self.assertEqual(capture.lines(), [])
        self.assertIs(mh.trace.sink, capture)


class SimulationTest(unittest.TestCase):
    def test_figures_as_in_the_json_report(self):
        report = mh.simulate(buckets=64, churn=200, seed=3)
        self.assertEqual(report["table"]["kind"], "multi")
        self.assertEqual(report["table"]["capacity"], 4 * 64 * 4)
        self.assertEqual(report["fill"]["failed"], 1)
        self.assertEqual(report["churn"]["requested"], 200)
        self.assertGreater(report["fillRatioAtEnd"], 0.5)
        again = mh.simulate(buckets=64, churn=200, seed=3)
        self.assertEqual(again["counters"], report["counters"])

    @unittest.skipUnless(os.environ.get("MHT"), "MHT names the mht tool to compare with")
    def test_same_figures_as_mht_simulate_json(self):
        def without_timings(value):
            if isinstance(value, dict):
                return {k: without_timings(v) for k, v in value.items()
                        if k not in ("seconds", "requestsPerSecond")}
            return value

        with tempfile.TemporaryDirectory() as scratch:
            path = os.path.join(scratch, "report.json")
            subprocess.run([os.environ["MHT"], "simulate", "--buckets", "128", "--churn", "500", "--seed", "7",
                            "--keys", "mac", "--no-progress", "--json", path], check=True, stdout=subprocess.DEVNULL)
            with open(path, encoding="utf-8") as f:
                tool = json.load(f)
        report = mh.simulate(buckets=128, churn=500, seed=7, keys="mac")
        self.assertEqual(without_timings(report), without_timings(tool))

    def test_breadth_first_figures_as_mht_simulate_json(self):
        with tempfile.TemporaryDirectory() as scratch:
            path = os.path.join(scratch, "report.json")
            subprocess.run([os.environ["MHT"], "simulate", "--buckets", "64", "--churn", "300", "--seed", "3",
                            "--move-search", "breadth-first", "--no-progress", "--json", path],
                           check=True, stdout=subprocess.DEVNULL)
            with open(path, encoding="utf-8") as f:
                tool = json.load(f)
        def without_timings(value):
            if isinstance(value, dict):
                return {k: without_timings(v) for k, v in value.items()
                        if k not in ("seconds", "requestsPerSecond")}
            return value

        report = mh.simulate(buckets=64, churn=300, seed=3, moveSearch="breadthFirst")
        self.assertEqual(report["table"]["moveSearch"], "breadthFirst")
        self.assertGreater(report["counters"]["moves"], 0)
        self.assertEqual(without_timings(report), without_timings(tool))
        with self.assertRaisesRegex(ValueError, "moveSearch: 'sideways' is neither"):
            mh.simulate(buckets=64, moveSearch="sideways")

    def test_single_width_options(self):
        report = mh.simulate(table="single", banks=2, buckets=16, slots=2, steps=5, requests=20, churn=0,
                             bankHash=[(1, "hashCrc16Lower", 0, 0, 15)])
        self.assertEqual(report["fill"]["requested"], 20)
        self.assertEqual(report["table"]["banks"][1]["hashFunc"], "hashCrc16Lower")

    def test_bad_options(self):
        with self.assertRaises(ValueError):
            mh.simulate(buckets=100)
        with self.assertRaises(ValueError):
            mh.simulate(table="triple")


if __name__ == "__main__":
    unittest.main()
