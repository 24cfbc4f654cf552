"""What was measured: samples by name, written as a benchmark program writes its results."""

import json
import statistics


def percentile(values, share):
    return sorted(values)[min(len(values) - 1, int(share * (len(values) - 1) + 0.5))]


class Figures:
    def __init__(self):
        self.samples = {}

    def add(self, name, *values):
        self.samples.setdefault(name, []).extend(values)

    def add_span(self, name, span):
        """ms of (begin, end)."""
        self.add(name, (span[1] - span[0]) * 1e3)

    def write(self, path):
        """Each with its median, and as NAME/p90 what nine of ten do not exceed."""
        runs = [{"run_name": name + suffix, "name": name + suffix, "run_type": "aggregate",
                 "aggregate_name": "median", "real_time": value, "cpu_time": value,
                 "time_unit": "ms", "repetitions": len(values)}
                for name, values in self.samples.items()
                for suffix, value in (("", statistics.median(values)),
                                      ("/p90", percentile(values, 0.9)))]
        path.parent.mkdir(exist_ok=True)
        path.write_text(json.dumps({"benchmarks": runs}, indent=1))
