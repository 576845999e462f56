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


class RefusalTest(unittest.TestCase):
    """Writes that the library would stop the process on raise instead, and write nothing."""

    def test_a_bad_configIs_raises_and_the_interpreter_goes_on(self):
        config, status, table = single_width_table(steps=3)
        with self.assertRaises(mh.RequestRefused) as refused:
            config.configIs((1, 2), 7)  # a's candidates are ids 2 and 5
        error = refused.exception
        self.assertIsInstance(error, RuntimeError)
        self.assertEqual(error.condition, "checkEntryIdValidity( key, eId )")
        self.assertEqual(error.outcome, mh.RequestOutcome.stopsNow)
        self.assertEqual(error.reason, "id 7 is not one of the key's candidate slots")
        self.assertEqual(error.verdict.condition, error.condition)
        self.assertIs(error.table, table)
        self.assertIn("because id 7 is not one of the key's candidate slots", str(error))
        self.assertEqual(config.requests(), {}, "nothing was written")
        config.configIs((1, 2), 5)
        self.assertEqual(status.results(), {A: 5})
        self.assertEqual(table.audit(), [])

    def test_a_removal_of_a_key_the_table_never_handled_raises(self):
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        config.configIs(A)  # before any table
        table = mh.MultiHashTable(2, 4, 1, config, status, maxRecursiveSteps=3)
        table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
        table.bankIs(T.singleWide, 1, 4, 1, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3)
        for remove in (lambda: config.configDel(A), config.configDelAll):
            with self.assertRaises(mh.RequestRefused) as refused:
                remove()
            self.assertEqual(refused.exception.condition, "hashEntryStatus()->statusHas( key )")
        self.assertEqual(config.requests(), {A: None})

    def test_a_hazardous_write_is_made_with_a_warning(self):
        config, status, _ = single_width_table(steps=3)
        config.configIs(A, 2)
        twin = mh.HashEntryKey(1, 2, 5)  # a's crc16 and crc32
        with self.assertWarnsRegex(RuntimeWarning, "hazardous: id 2 holds key"):
            config.configIs(twin, 2)
        self.assertEqual(status.status(twin), 2)

    def test_checked_writes_return_the_verdict(self):
        config, status, table = single_width_table(steps=3)
        write = mh.checkedConfigIs(config, table, A, 7)
        self.assertFalse(write.written)
        self.assertEqual(write.verdict.condition, "checkEntryIdValidity( key, eId )")
        self.assertEqual(config.requests(), {})
        write = mh.checkedConfigIs(config, table, A, refusal=mh.WriteRefusal.fatalOrHazard)
        self.assertTrue(write.written)
        self.assertTrue(write.verdict.passes)
        self.assertEqual(status.status(A), 2)
        self.assertTrue(mh.checkedConfigDel(config, table, A).written)
        self.assertEqual(status.results(), {})
        other = mh.HashEntryConfig()
        with self.assertRaises(ValueError):
            mh.checkedConfigIs(other, table, A)

    def test_a_misconfigured_multi_width_table_is_refused_at_its_first_write(self):
        # Buckets of 8 slots: the bucket state word serves 4.
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        table = mh.MultiEntryTypeHashTable(1, 4, 8, config, status, maxRecursiveSteps=1)
        table.bankIs(T.singleWide, 0, 4, 8, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3, phyBankId=0)
        table.entryIdHelperIs(mh.EntryIdHelper(table))
        try:
            check = table.configurationCheck()
            self.assertFalse(check.passes())
            self.assertEqual([p.rule for p in check.problems], ["unsupportedBucketSize"])
            problem = check.problems[0]
            self.assertEqual(problem.bank, 0)
            self.assertEqual(problem.consequence, "a later placement stops the agent")
            self.assertIn("bucketSize 8 is past the 4 slots", problem.reason)
            self.assertEqual(str(check), problem.text)
            self.assertEqual(table.configurationProblem(), problem.text)
            with self.assertRaises(mh.ConfigurationRefused) as refused:
                config.configIs((1, 2))
            self.assertIsInstance(refused.exception, RuntimeError)
            self.assertEqual(refused.exception.problems, [problem.text])
            self.assertIs(refused.exception.table, table)
            self.assertEqual(config.requests(), {})
        finally:
            table.entryIdHelperIs(None)

    def test_table_and_bank_slots_that_disagree_are_refused(self):
        # The table counts 2 slots per bucket, its banks 4.
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        table = mh.MultiEntryTypeHashTable(2, 4, 2, config, status, maxRecursiveSteps=1)
        table.bankIs(T.singleWide, 0, 4, 4, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3, phyBankId=0)
        table.bankIs(T.singleWide, 1, 4, 4, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3, phyBankId=1)
        table.entryIdHelperIs(mh.EntryIdHelper(table))
        try:
            with self.assertRaises(mh.ConfigurationRefused) as refused:
                config.configIs((1, 2, 0, T.doubleWide))
            problems = refused.exception.problems
            self.assertEqual(len(problems), 2)
            for bank, text in enumerate(problems):
                self.assertTrue(text.startswith(f"bank {bank}: bucketSize 4 differs from the table's "
                                                "numBucketEntries 2"), text)
            self.assertEqual([p.rule for p in refused.exception.check.problems], ["slotsDisagree"] * 2)
        finally:
            table.entryIdHelperIs(None)

    def test_a_table_that_is_gone_judges_nothing(self):
        config, status, table = single_width_table(steps=3)
        del table
        config.configIs((1, 2), 7)  # no table reacts: a request like any other
        self.assertEqual(config.requests(), {A: 7})
        self.assertEqual(status.results(), {})

    def test_a_stopped_bank_creation_raises(self):
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        table = mh.MultiEntryTypeHashTable(1, 4, 4, config, status, maxRecursiveSteps=1)
        with self.assertRaises(mh.AssertionStopped) as stopped:
            table.bankIs(T.empty, 0, 4, 4, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3, phyBankId=0)
        self.assertIn("BaseEntryType should be non empty", stopped.exception.condition)

    def test_unserved_outcome(self):
        self.assertEqual(mh.RequestOutcome.unserved.name, "unserved")
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        table = mh.MultiHashTable(1, 4, 1, config, status, maxRecursiveSteps=1)
        table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x1)  # never buckets 2 and 3
        check = table.requestCheck(A)
        self.assertEqual(check.outcome, mh.RequestOutcome.unserved)
        self.assertTrue(check.unserved)
        self.assertFalse(check.passes)
        with self.assertRaises(mh.ConfigurationRefused) as refused:
            config.configIs(A)
        self.assertEqual(refused.exception.check.problems[0].rule, "maskShortOfBuckets")


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
                        if k not in ("seconds", "requestsPerSecond", "slowestRequest")}
            return value

        with tempfile.TemporaryDirectory() as scratch:
            path = os.path.join(scratch, "report.json")
            subprocess.run([os.environ["MHT"], "simulate", "--buckets", "128", "--churn", "500", "--seed", "7",
                            "--keys", "mac", "--no-progress", "--json", path], check=True, stdout=subprocess.DEVNULL)
            with open(path, encoding="utf-8") as f:
                tool = json.load(f)
        report = mh.simulate(buckets=128, churn=500, seed=7, keys="mac")
        self.assertEqual(without_timings(report), without_timings(tool))

    @unittest.skipUnless(os.environ.get("MHT"), "MHT names the mht tool to compare with")
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
                        if k not in ("seconds", "requestsPerSecond", "slowestRequest")}
            return value

        report = mh.simulate(buckets=64, churn=300, seed=3, moveSearch="breadthFirst")
        self.assertEqual(report["table"]["moveSearch"], "breadthFirst")
        self.assertGreater(report["counters"]["moves"], 0)
        self.assertEqual(without_timings(report), without_timings(tool))
        with self.assertRaises(mh.OptionRefused) as refused:
            mh.simulate(buckets=64, moveSearch="sideways")
        self.assertEqual(str(refused.exception),
                         "moveSearch: 'sideways' is not one of depthFirst, breadthFirst, depth-first, breadth-first")

    def test_single_width_options(self):
        report = mh.simulate(table="single", banks=2, buckets=16, slots=2, steps=5, requests=20, churn=0,
                             bankHash=[(1, "hashCrc16Lower", 0, 0, 15)])
        self.assertEqual(report["fill"]["requested"], 20)
        self.assertEqual(report["table"]["banks"][1]["hashFunc"], "hashCrc16Lower")

    def test_bad_options(self):
        with self.assertRaises(mh.OptionRefused) as refused:
            mh.simulate(buckets=100)
        self.assertEqual(str(refused.exception), "buckets: 100 buckets is not a power of two up to 1048576")
        with self.assertRaises(ValueError) as refused:
            mh.simulate(table="triple")
        self.assertEqual(refused.exception.keyword, "table")
        self.assertEqual(refused.exception.reason, "'triple' is neither 'single' nor 'multi'")

    def test_a_table_the_library_refuses_is_not_simulated(self):
        with self.assertRaises(mh.ConfigurationRefused) as refused:
            mh.simulate(table="multi", buckets=64, slots=8)
        self.assertEqual(len(refused.exception.problems), 4)
        self.assertIsNone(refused.exception.table)
        with self.assertRaisesRegex(mh.ConfigurationRefused, "hashLsb selects no bucket"):
            mh.simulate(table="single", buckets=64, bankHash=[(1, "hashLsb", 0, 0, 63)])


if __name__ == "__main__":
    unittest.main()
