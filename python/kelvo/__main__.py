"""python -m kelvo: the command "kelvo" of this installation."""

import os
import sys

from kelvo._command import environment, program
from kelvo.errors import Error


def main() -> None:
    try:
        command = str(program())
    except Error as error:
        sys.exit(f"kelvo: {error}")
    os.execve(command, [command, *sys.argv[1:]], environment())


if __name__ == "__main__":
    main()
