"""The comparison of pictures notices what is wrong with them.

Usage: python3 sent_pictures_test.py [unittest arguments]
"""

import unittest

from sent_pictures import WrongPictures, check_pictures

SENT = [f"picture {number}" for number in range(100)]


class SentPicturesTest(unittest.TestCase):
    def assert_wrong(self, seen):
        with self.assertRaises(WrongPictures):
            check_pictures("a program", seen, SENT)

    def test_pictures_in_order_are_right_also_with_gaps_and_repeats(self):
        self.assertEqual(check_pictures("a program", SENT[4:14], SENT), 10)
        self.assertEqual(check_pictures("a program", [SENT[at] for at in (4, 5, 5, 9, 30)], SENT), 5)

    def test_a_picture_that_was_never_sent_is_wrong(self):
        self.assert_wrong(SENT[4:8] + ["torn"] + SENT[9:12])
        self.assert_wrong(SENT[4:8] + ["torn"] + SENT[8:12])

    def test_one_that_packets_are_missing_from_is_followed_by_a_gap(self):
        self.assertEqual(check_pictures("a program", SENT[4:8] + ["cut"] + SENT[11:14], SENT), 7)
        self.assert_wrong(SENT[4:8] + ["cut"] + SENT[10:14])

    def test_pictures_that_change_their_order_are_wrong(self):
        self.assert_wrong(SENT[4:8] + SENT[3:9])

    def test_mostly_unknown_pictures_are_wrong(self):
        self.assert_wrong(SENT[4:6] + ["x", "y", "z"])
        self.assert_wrong([])


unittest.main()
