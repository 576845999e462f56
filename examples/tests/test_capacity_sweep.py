"""examples/capacity_sweep.py refuses every bad option before its sweep starts: argparse's
usage and one line naming the option and why, exit status 2, no output file."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "capacity_sweep.py")
SMALL = ["--buckets", "64", "--seeds", "1", "--steps", "0-1"]


def sweep(*options, out):
    return subprocess.run([sys.executable, SCRIPT, *SMALL, "--out", out, *options], capture_output=True, text=True,
                          check=False)


class RefusalTest(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.out = os.path.join(self.scratch.name, "sweep.png")

    def tearDown(self):
        self.scratch.cleanup()

    def assertRefused(self, options, message, out=None):
        run = sweep(*options, out=out or self.out)
        self.assertEqual(run.returncode, 2, run.stderr)
        self.assertTrue(run.stderr.startswith("usage: capacity_sweep.py"), run.stderr)
        self.assertEqual(run.stderr.split("capacity_sweep.py: error: ", 1)[1], message + "\n")
        self.assertEqual(run.stdout, "", "the sweep never started")
        self.assertFalse(os.path.exists(self.out))
        return run

    def test_buckets_the_simulation_refuses(self):
        self.assertRefused(["--buckets", "1000"],
                           "argument --buckets: 1000 buckets is not a power of two up to 1048576")

    def test_a_mix_of_two_weights(self):
        self.assertRefused(["--mix", "1/2"],
                           "argument --mix: '1/2' is not three weights single/double/quad, such as 70/20/10")
        self.assertRefused(["--mix", "0/0/0"], "argument --mix: weights must be non-negative and not all zero")

    def test_an_empty_range_of_chain_depths(self):
        self.assertRefused(["--steps", "8-0"],
                           "argument --steps: '8-0' is an empty range: its first depth is above its last")
        self.assertRefused(["--steps", "0-17"], "argument --steps: 17 is not in [0, 16]")

    def test_an_unknown_move_search(self):
        self.assertRefused(["--move-search", "sideways"], "argument --move-search: 'sideways' is not one of "
                           "depthFirst, breadthFirst, depth-first, breadth-first")

    def test_a_table_the_library_refuses(self):
        problem = ("bucketSize 8 is past the 4 slots that a bucket's state word serves: a later placement stops "
                   'the agent on the assertion "!posToKeyHas( pos )"')
        self.assertRefused(["--slots", "8"], "the table cannot serve its requests (4 problems):"
                           + "".join(f"\n  bank {bank}: {problem}" for bank in range(4)))

    def test_an_output_that_cannot_be_written(self):
        missing = os.path.join(self.scratch.name, "no-such-directory", "sweep.png")
        self.assertRefused([], f"argument --out: cannot write {missing}: No such file or directory", out=missing)
        self.assertRefused([], f"argument --out: cannot write {self.scratch.name}: Is a directory",
                           out=self.scratch.name)

    def test_counts_that_are_not_positive(self):
        self.assertRefused(["--seeds", "0"], "argument --seeds: '0' is not a positive integer")


class SweepTest(unittest.TestCase):
    def test_both_spellings_of_the_move_search(self):
        with tempfile.TemporaryDirectory() as scratch:
            for spelling in ("breadth-first", "breadthFirst"):
                out = os.path.join(scratch, f"{spelling}.png")
                run = sweep("--move-search", spelling, out=out)
                self.assertEqual(run.returncode, 0, run.stderr)
                self.assertTrue(run.stdout.startswith("depth  fill at first failure  moves per placement\n"))
                self.assertTrue(run.stdout.endswith(f"wrote {out}\n"))
                self.assertGreater(os.path.getsize(out), 0)


if __name__ == "__main__":
    unittest.main()
