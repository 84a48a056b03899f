"""The panel's own logs are kept from growing without bound."""
import panel
from panel import PanelTest, settings, text, write


class PanelLogs(PanelTest):
    def test_large_ones_once_a_day_and_with_the_tally(self):
        settings(log_rotate_size=1, logs_to_keep=3, check_load=0)
        large, log = "x" * (1024 * 1024 + 1), panel.LOGS + "/system.log"
        sizes = lambda: [len(text(log + end)) > 1024 * 1024 for end in ("", ".1", ".2", ".3")]
        for line, want in [(None, [0, 1, 0, 0]), (None, [1, 1, 0, 0]), ("action=quotatally&value=all", [1, 1, 0, 0]),
                           ("action=tally&value=all", [0, 1, 1, 0])]:
            write(log, large, "zvadmin", 0o600)
            if line:
                self.queue(line)
            self.run_program()
            self.assertEqual(sizes(), [bool(n) for n in want], line)


if __name__ == "__main__":
    panel.main()
