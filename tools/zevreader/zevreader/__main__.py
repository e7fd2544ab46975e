"""python3 -m zevreader: the zevreader command."""
import sys

from .cli import main

sys.exit(main())
