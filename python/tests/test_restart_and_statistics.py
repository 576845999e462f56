"""A restart's take-over of a saved placement, and a table's statistics, from Python."""
import unittest

import multihashtable as mh

T = mh.HashEntryType

# a may take ids 2 and 5, y ids 2 and 7, z ids 2 and 7: placing a, y, z in that order
# moves a from 2 to 5 to make room for z.
A = mh.HashEntryKey(crc16=1, crc32=2)
Y = mh.HashEntryKey(crc16=3, crc32=2)
Z = mh.HashEntryKey(crc16=7, crc32=6)


def single_width_table():
    """Two banks of 4 one-slot buckets: bank 0 hashes crc32, bank 1 crc16."""
    config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
    table = mh.MultiHashTable(2, 4, 1, config, status, maxRecursiveSteps=3)
    table.bankIs(T.singleWide, 0, 4, 1, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
    table.bankIs(T.singleWide, 1, 4, 1, mh.HashFunc.hashCrc16Lower, 0, 0, 0x3)
    return config, status, table


def placed_a_y_z():
    config, status, table = single_width_table()
    for key in (A, Y, Z):
        config.configIs(key)
    return config, status, table


def restarted(saved):
    """A fresh table given the saved requests in the restart order: notification off,
    requests rewritten."""
    config, status, table = single_width_table()
    table.hasNotificationActiveIs(False)
    for key, _ in saved:
        config.configIs(key)
    return config, status, table


class RestoreTest(unittest.TestCase):
    def test_the_saved_placement_lists_each_key_at_its_id(self):
        _, status, _ = placed_a_y_z()
        self.assertEqual(sorted(mh.savedPlacementOf(status), key=lambda item: item[1]), [(Z, 2), (A, 5), (Y, 7)])

    def test_a_restored_table_holds_every_key_where_the_first_did_without_a_move(self):
        _, first_status, first = placed_a_y_z()
        saved = mh.savedPlacementOf(first_status)
        _, status, table = restarted(saved)
        published = []
        status.onChange(lambda key, id: published.append((key, id)))
        check = table.restore(saved)
        table.hasNotificationActiveIs(True)
        self.assertTrue(check.passes())
        self.assertEqual(check.keys, 3)
        self.assertEqual(str(check), "restores 3 key(s)")
        self.assertEqual(table.entries(), first.entries())
        self.assertEqual({key: status.status(key) for key in (A, Y, Z)}, {A: 5, Y: 7, Z: 2})
        self.assertEqual(sorted(published, key=lambda item: item[1]), [(Z, 2), (A, 5), (Y, 7)])
        self.assertEqual(table.numMoves, 0)
        self.assertEqual(table.statistics.moves, 0)
        self.assertEqual(table.statistics.slotsUsed, first.statistics.slotsUsed)
        self.assertTrue(table.auditReport().clean())

    def test_a_restore_takes_a_status_collection_as_well(self):
        _, first_status, first = placed_a_y_z()
        _, _, table = restarted(mh.savedPlacementOf(first_status))
        self.assertEqual(table.restore(first_status).keys, 3)
        self.assertEqual(table.entries(), first.entries())

    def test_a_key_without_a_request_is_refused_and_nothing_changes(self):
        _, status, table = restarted([(A, 5)])
        with self.assertRaises(mh.RestoreRefused) as refused:
            table.restore([(A, 5), (Y, 7)])
        self.assertEqual(len(refused.exception.problems), 1)
        self.assertEqual(refused.exception.check.problems[0].rule, mh.RestoreRule.noRequest)
        self.assertEqual(refused.exception.check.problems[0].key, Y)
        self.assertEqual(refused.exception.check.problems[0].id, 7)
        self.assertIs(refused.exception.table, table)
        self.assertEqual(
            str(refused.exception),
            "restore refused: no request: key TesselCentral::HashEntryKey{crc16=3, crc32=2, fapId=0, "
            "entryType=singleWide} saved at id 7 has no request: write every saved key's request before the restore")
        self.assertEqual(table.entries(), {})
        self.assertFalse(status.statusHas(A))

    def test_an_id_outside_the_keys_candidates_is_refused(self):
        _, _, table = restarted([(A, 3)])
        check = table.restoreCheck([(A, 3)])
        self.assertFalse(check.passes())
        self.assertTrue(check.has(mh.RestoreRule.notCandidate))
        self.assertEqual(table.entries(), {})
        with self.assertRaises(mh.RestoreRefused):
            table.restore([(A, 3)])
        self.assertEqual(table.entries(), {})

    def test_the_check_alone_changes_nothing(self):
        _, status, table = restarted([(A, 5)])
        self.assertEqual(table.restoreCheck([(A, 5)]).text(), "restores 1 key(s)")
        self.assertEqual(table.entries(), {})
        self.assertFalse(status.statusHas(A))


class StatisticsTest(unittest.TestCase):
    def test_three_placements_one_of_them_with_a_move(self):
        _, _, table = placed_a_y_z()
        s = table.statistics
        self.assertEqual(s.placementsByMoves, {0: 2, 1: 1})
        self.assertEqual(s.placements, 3)
        self.assertEqual(s.placementMoves, 1)
        self.assertEqual(s.moves, 1)
        self.assertEqual(s.largestChain, 1)
        self.assertEqual(s.failures(), 0)
        self.assertEqual(s.failures(mh.PlacementFailure.noRoom), 0)
        self.assertEqual(s.slotsUsed, [1, 2])

    def test_a_key_without_room_is_a_failure_for_want_of_room(self):
        config, _, table = placed_a_y_z()
        config.configIs(mh.HashEntryKey(crc16=3, crc32=6))  # ids 2 and 7, both held by keys with no other place
        self.assertEqual(table.statistics.failures(mh.PlacementFailure.noRoom), 1)
        self.assertEqual(table.statistics.failures(), 1)

    def test_a_reset_zeroes_the_counts_and_keeps_the_slots_used(self):
        _, _, table = placed_a_y_z()
        table.statisticsReset()
        s = table.statistics
        self.assertEqual(s.placementsByMoves, {})
        self.assertEqual((s.placements, s.moves, s.largestChain), (0, 0, 0))
        self.assertEqual(s.slotsUsed, [1, 2])


if __name__ == "__main__":
    unittest.main()
