# Tests of the shared sources that cannot hold where GNUstep's Foundation stands in for Apple's.

# GNUstep's -lowercaseString maps each unit of UTF-16 by itself: neither what depends on the
# neighbours, nor what becomes several letters, nor what lies beyond the first 65536 code points, nor
# what Unicode has gained of late.
set(excluded
    Names/GroupTest.DecidesWhichNamesClash/FinalSigma
    Names/GroupTest.DecidesWhichNamesClash/SigmaThatIsNotFinal
    Names/GroupTest.DecidesWhichNamesClash/FinalSigmaBeforeANumber
    Names/GroupTest.DecidesWhichNamesClash/DottedCapitalI
    Names/GroupTest.DecidesWhichNamesClash/DottedCapitalIIsNotI
    Names/GroupTest.DecidesWhichNamesClash/CapitalSharpS
    Names/GroupTest.DecidesWhichNamesClash/Deseret
    LowercasedTest.MapsTheWholeStringWithoutALocale)

# GNUstep's random UUIDs do not tell their version.
list(APPEND excluded UUIDTest.IsARandomOneInItsCanonicalUpperCaseForm)

# GNUstep adds a solidus to the URL of a folder that exists, also when it is told that it is none.
list(APPEND excluded URLTest.ResolvesARelativePathAgainstTheWorkingDirectory)

# Foundation's paths are text. A Mac's file systems hold no other names.
list(APPEND excluded URLTest.PercentEncodesBytesThatAreNoText)

# GNUstep calls a file in place of a folder no failure to create that folder.
list(APPEND excluded CreateDirectoryTest.NamesTheFolderAndTheReasonOfAFailure)

# The system's log holds text; what is none comes out of it as U+FFFD.
list(APPEND excluded
     DownloadTest.ATextThatIsNotUtf8CannotBeSynchronized
     Texts/FailedErrorTest.AnyOtherErrorIsMappedLikeIt/NotUtf8
     Texts/FailedErrorTest.IsMappedByTheWordsInIt/NotUtf8)

# The stand-in for the dispatch library lowers no priority.
list(APPEND excluded DispatchTest.UtilityWorkersRunAtLowerPriority)

list(JOIN excluded ":" excluded)
set(TULO_TEST_FILTER "*:-${excluded}")
