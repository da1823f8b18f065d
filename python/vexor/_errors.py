"""The package's exceptions."""


class CompileError(ValueError):
    """A program that did not compile.

    ``messages`` lists each error as ``(line, text)``, ``line`` being the line
    of the program text (0 when the message names none); ``report`` is the
    listing with the program and the errors where they occur.
    """

    def __init__(self, summary, messages, report=""):
        super().__init__(summary)
        self.messages = list(messages)
        self.report = report

    def __reduce__(self):
        return (CompileError, (str(self), self.messages, self.report))
