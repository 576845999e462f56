"""The operations of both tables that an agent uses, from Python under their C++ names:
resync, reconcile, move search, candidates, audit report, banks, slots and bucket states."""
import unittest

import multihashtable as mh

T = mh.HashEntryType

# As in test_multihashtable: a may take ids 2 and 5, y ids 2 and 7, z ids 2 and 7.
A = mh.HashEntryKey(crc16=1, crc32=2)
Y = mh.HashEntryKey(crc16=3, crc32=2)
Z = mh.HashEntryKey(crc16=7, crc32=6)
A_TEXT = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}"
Y_TEXT = "TesselCentral::HashEntryKey{crc16=3, crc32=2, fapId=0, entryType=singleWide}"
NOT_A_CANDIDATE = ('stops the agent: assertion "checkEntryIdValidity( key, eId )", because id 3 is not one of '
                   "the key's candidate slots")


def single_width_table(steps=3):
    """Two banks of 4 one-slot buckets: bank 0 hashes crc32, bank 1 crc16."""
    config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
    table = mh.MultiHashTable(2, 4, 1, config, status, maxRecursiveSteps=steps)
    table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
    table.bankIs(T.singleWide, 1, 4, 1, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3)
    return config, status, table


def places(candidates):
    return [(c.bank, c.bucket, c.slot, c.width, c.id) for c in candidates]


class MoveSearchTest(unittest.TestCase):
    def test_both_spellings_and_the_enumeration(self):
        _, _, table = single_width_table()
        self.assertEqual(table.moveSearch, mh.MoveSearch.depthFirst)
        table.moveSearchIs("breadth-first")
        self.assertEqual(table.moveSearch, mh.MoveSearch.breadthFirst)
        table.moveSearchIs("depthFirst")
        self.assertEqual(table.moveSearch, mh.MoveSearch.depthFirst)
        table.moveSearchIs(mh.MoveSearch.breadthFirst)
        self.assertEqual(table.moveSearch, mh.MoveSearch.breadthFirst)
        self.assertEqual(mh.MoveSearch("depth-first"), mh.MoveSearch.depthFirst)
        self.assertEqual(mh.MoveSearch("breadthFirst"), mh.MoveSearch.breadthFirst)

    def test_an_unknown_name_is_refused_with_every_spelling(self):
        _, _, table = single_width_table()
        expected = "'sideways' is not one of depthFirst, breadthFirst, depth-first, breadth-first"
        with self.assertRaises(ValueError) as refused:
            table.moveSearchIs("sideways")
        self.assertEqual(str(refused.exception), expected)
        with self.assertRaises(ValueError) as refused:
            mh.MoveSearch("sideways")
        self.assertEqual(str(refused.exception), expected)
        self.assertEqual(table.moveSearch, mh.MoveSearch.depthFirst)

    def test_breadth_first_places_z_by_moving_a(self):
        config, status, table = single_width_table()
        table.moveSearchIs("breadth-first")
        for key in (A, Y, Z):
            config.configIs(key)
        self.assertEqual(status.results(), {A: 5, Y: 7, Z: 2})
        self.assertEqual(table.numMoves, 1)


class CandidatesTest(unittest.TestCase):
    def test_single_width_candidates_and_slots(self):
        _, _, table = single_width_table()
        self.assertEqual(places(table.candidates(Z)), [(0, 2, 0, 1, 2), (1, 3, 0, 1, 7)])
        self.assertEqual(str(table.candidates(A)[1]), "bank 1 bucket 1 slot 0 width 1: id 5")
        slot = table.slotOfId(5)
        self.assertEqual((slot.bank, slot.bucket, slot.slot, slot.width, slot.id), (1, 1, 0, 1, 5))
        self.assertEqual(slot, table.candidates(A)[1])
        self.assertEqual(table.calcEntryId(1, 1, 0), 5)

    def test_bank_bucket_selection(self):
        _, _, table = single_width_table()
        self.assertEqual(sorted(table.banks()), [0, 1])
        self.assertEqual(table.banks()[1].hashFunc, mh.HashFunc.hashCrc16Lower)
        self.assertEqual(table.bank(0).calcBucketId(crc16=1, crc32=2), 2)
        self.assertEqual(table.bank(1).calcBucketId(crc16=1, crc32=2), 1)

    def test_records_and_the_chip_instance(self):
        config, _, table = single_width_table()
        config.configIs(A)
        self.assertEqual(table.hashTableEntryOf(2), A)
        self.assertIsNone(table.hashTableEntryOf(5))
        self.assertEqual(table.fapId, 127)
        table.fapIdIs(5)
        self.assertEqual(table.fapId, 5)
        self.assertIsNone(table.checkSanity())


class ResyncTest(unittest.TestCase):
    def test_a_table_that_does_not_listen_neither_reacts_nor_judges(self):
        config, status, table = single_width_table()
        self.assertTrue(table.notificationActive)
        table.hasNotificationActiveIs(False)
        self.assertFalse(table.notificationActive)
        config.configIs(A)
        config.configIs(Y, 3)  # not one of y's candidates, but no table listens
        self.assertEqual(status.results(), {})
        self.assertEqual(table.resyncProblem(), f"{NOT_A_CANDIDATE.split(', because')[0]}, because at key "
                                                f"{Y_TEXT} requested 3: id 3 is not one of the key's candidate slots")
        self.assertTrue(table.resyncCheck().fatal)
        with self.assertRaises(mh.RequestRefused) as refused:
            table.handleHashUpdate()
        self.assertEqual(str(refused.exception), "handleHashUpdate() refused: " + table.resyncProblem())
        self.assertIs(refused.exception.table, table)
        self.assertEqual(status.results(), {}, "nothing was resynced")
        config.configIs(Y)
        self.assertEqual(table.resyncProblem(), "")
        check = table.resyncCheck()
        self.assertEqual(check.outcome, mh.RequestOutcome.accepted)
        self.assertEqual(str(check), "accepted: every request is placed again without stopping")
        table.handleHashUpdate()
        self.assertEqual(status.results(), {A: 2, Y: 7})
        table.hasNotificationActiveIs(True)
        config.configIs(Z)
        self.assertEqual(status.results(), {A: 5, Y: 7, Z: 2})

    def test_a_misconfigured_table_refuses_the_resync(self):
        config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
        table = mh.MultiHashTable(1, 4, 1, config, status, maxRecursiveSteps=1)
        table.hasNotificationActiveIs(False)
        config.configIs(A)
        table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x1)  # never buckets 2 and 3
        with self.assertRaises(mh.ConfigurationRefused) as refused:
            table.handleHashUpdate()
        self.assertEqual(str(refused.exception), "handleHashUpdate() refused: the table cannot serve its requests: "
                         + table.configurationProblem())
        self.assertEqual([p.rule for p in refused.exception.check.problems], ["maskShortOfBuckets"])


class ReconcileTest(unittest.TestCase):
    def test_the_report_and_the_audit_before_and_after(self):
        config, status, table = single_width_table()
        config.configIs(A)
        table.hasNotificationActiveIs(False)
        config.configDel(A)  # a's result stays: no table listened
        config.configIs(Y, 3)
        table.hasNotificationActiveIs(True)

        audit = table.auditReport()
        self.assertFalse(audit.clean())
        finding = f"key {A_TEXT} has the result 2 but no request"
        self.assertEqual([(f.kind, f.text, f.id) for f in audit.findings],
                         [(mh.AuditKind.resultWithoutRequest, finding, 2)])
        self.assertEqual(audit.count(mh.AuditKind.resultWithoutRequest), 1)
        self.assertEqual(audit.count(mh.AuditKind.corruption), 0)
        self.assertTrue(audit.finds(mh.AuditKind.resultWithoutRequest, 2))
        self.assertFalse(audit.finds(mh.AuditKind.leakedId, 2))
        self.assertEqual(audit.texts(mh.AuditKind.resultWithoutRequest), [finding])
        self.assertEqual(str(audit), "result without a request: " + finding)

        report = table.reconcile()
        self.assertEqual(report.acted, 1)
        self.assertEqual([(r.key, r.id) for r in report.removed], [(A, 2)])
        self.assertEqual([(k.key, k.requested, k.reason) for k in report.kept], [(Y, 3, NOT_A_CANDIDATE)])
        self.assertEqual(report.released, [])
        self.assertEqual(str(report), f"acted on 1 key(s), kept 1\n  {Y_TEXT} requested 3: {NOT_A_CANDIDATE}\n"
                                      f"  removed the result 2 of {A_TEXT}: its request is gone")
        self.assertEqual(status.results(), {})
        self.assertTrue(table.auditReport().clean())
        self.assertEqual(str(table.auditReport()), "clean")
        self.assertEqual(table.numDeletions, 1)


class MultiWidthQueriesTest(unittest.TestCase):
    def setUp(self):
        self.config, self.status = mh.HashEntryConfig(), mh.HashEntryStatus()
        self.table = mh.MultiEntryTypeHashTable(2, 4, 4, self.config, self.status, maxRecursiveSteps=1)
        self.table.bankIs(T.singleWide, 0, 4, 4, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3, phyBankId=2)
        self.table.bankIs(T.singleWide, 1, 4, 4, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3, phyBankId=5)
        self.helper = mh.EntryIdHelper(self.table)
        self.table.entryIdHelperIs(self.helper)

    def tearDown(self):
        self.table.entryIdHelperIs(None)

    def test_candidates_bucket_state_and_positions(self):
        wide = mh.HashEntryKey(1, 1, 0, T.doubleWide)
        self.assertEqual(places(self.table.candidates(wide)),
                         [(0, 1, 0, 2, 4), (0, 1, 2, 2, 6), (1, 1, 0, 2, 20), (1, 1, 2, 2, 22)])
        self.config.configIs(wide)
        self.assertEqual(self.status.status(wide), 4)
        bank = self.table.bank(0)
        self.assertEqual(bank.bucket(1), 0x220003, "slots 0 and 1 taken, each marked doubleWide")
        self.assertEqual(bank.getEntryType(1, 0), T.doubleWide)
        self.assertEqual(bank.getEntryType(1, 2), T.empty)
        self.assertEqual(self.helper.entryIdToPos(4), 0x10, "bank 0, bucket 1, slot 0")
        self.assertEqual(self.helper.posToEntryId(0x10), 4)
        self.assertTrue(self.helper.checkEntryIdValidity(wide, 6))
        self.assertFalse(self.helper.checkEntryIdValidity(wide, 0))
        self.assertEqual({i: b.phyBankId for i, b in self.table.banks().items()}, {0: 2, 1: 5})
        self.assertEqual(self.table.auditReport().findings, [])


class SimulationCheckTest(unittest.TestCase):
    def test_an_option_the_tool_refuses(self):
        with self.assertRaises(mh.OptionRefused) as refused:
            mh.simulationCheck(buckets=1000)
        error = refused.exception
        self.assertIsInstance(error, ValueError)
        self.assertEqual((error.keyword, error.reason), ("buckets", "1000 buckets is not a power of two up to 1048576"))
        self.assertEqual(str(error), "buckets: 1000 buckets is not a power of two up to 1048576")
        with self.assertRaises(mh.OptionRefused) as refused:
            mh.simulationCheck(mix=(0, 0, 0))
        self.assertEqual(str(refused.exception), "mix: weights must be non-negative and not all zero")
        with self.assertRaises(mh.OptionRefused) as refused:
            mh.simulationCheck(moveSearch="sideways")
        self.assertEqual(str(refused.exception),
                         "moveSearch: 'sideways' is not one of depthFirst, breadthFirst, depth-first, breadth-first")

    def test_a_table_the_library_refuses(self):
        with self.assertRaises(mh.ConfigurationRefused) as refused:
            mh.simulationCheck(slots=8)
        self.assertEqual(len(refused.exception.problems), 4)
        self.assertTrue(str(refused.exception).startswith("the table cannot serve its requests (4 problems):\n"
                                                          "  bank 0: bucketSize 8 is past the 4 slots"))
        self.assertIsNone(mh.simulationCheck(buckets=64, moveSearch="breadth-first"))

    def test_both_spellings_simulate_alike(self):
        hyphen = mh.simulate(buckets=64, churn=100, seed=2, moveSearch="breadth-first")
        camel = mh.simulate(buckets=64, churn=100, seed=2, moveSearch="breadthFirst")
        enum = mh.simulate(buckets=64, churn=100, seed=2, moveSearch=mh.MoveSearch.breadthFirst)
        self.assertEqual(hyphen["table"]["moveSearch"], "breadthFirst")
        self.assertEqual(hyphen["counters"], camel["counters"])
        self.assertEqual(enum["counters"], camel["counters"])


if __name__ == "__main__":
    unittest.main()
