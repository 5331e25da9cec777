"""python3 -m keli OP IN OUT [options]: see keli.cli."""
import sys

from .cli import main

sys.exit(main())
