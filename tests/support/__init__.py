"""The code that the Python tests, the campaigns and the benchmarks share.

places    the folders of the tree, and scratch directories on the RAM disk
versions  the newest version and the dump of each version
device    the scratch device: its files, its database, programs that run on it
contents  what a database holds, and how two databases differ
judge     what a run took from a database, on purpose or only here
campaign  long series of trials that go on where they stopped
"""
