// Bills the open hours of every client: each project's hour lines move onto a new invoice
// for the project's client, at the rate the line carries. Answers what it made.
var made = [];
fetchRecords('Client').sort('organization').records().forEach(function (client) {
    var hours = fetchRecords('Cost')
        .filter("unit == 'h' AND parent.parentDocument.uid == '" + client.uid + "'")
        .editableRecords()
        .filter(function (line) { return line.parent.entityName() === 'Project'; });
    if (hours.length === 0) {
        return;
    }
    var invoice = insertRecord('Invoice');
    invoice.contact = client;
    invoice.parentDocument = client;
    invoice.subject = subject + ' ' + client.organization;
    hours.forEach(function (line) {
        line.parent = invoice;
    });
    made.push({client: client.organization, lines: hours.length,
               gross: invoice.interchangeRecord().grossAsString});
});
log('invoices made: ' + made.length);
made;
