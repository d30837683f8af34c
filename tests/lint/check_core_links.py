"""Checks that the core layers bring neither OpenCV nor PCL into a program.

usage: check_core_links.py PROGRAM

PROGRAM links the storage, bag and message layers and drops no library that they name.
"""

import re
import subprocess
import sys


def main():
    listing = subprocess.run(["readelf", "--dynamic", sys.argv[1]], capture_output=True, text=True, check=True).stdout
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", listing)
    print("\n".join(needed))
    if not any(name.startswith("libprotobuf") for name in needed):
        sys.exit("the program does not link what the core needs: this check looks at the wrong program")
    heavy = [name for name in needed if re.match(r"lib(opencv|pcl|avcodec|avformat)", name)]
    if heavy:
        sys.exit(f"the core links {', '.join(heavy)}")


if __name__ == "__main__":
    main()
